// Nothing but the library's choice: whoever defines active() otherwise links without this object file.

#include "kernels/Choice.h"

namespace orvacam::kernels {

const KernelTable& active() {
  static const KernelTable chosen = choose(thisProcessor());
  return chosen;
}

}  // namespace orvacam::kernels

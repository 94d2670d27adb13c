// Prints docs/keywords.md.

#include <cstdio>

#include "files/KeywordTable.h"

int main() {
  return std::fputs(orvacam::files::keywordsPage().c_str(), stdout) < 0 ? 1 : 0;
}

// orvacam: raw frames of scientific cameras on the command line.

#include "CommandLine.h"
#include "Program.h"

int main(int argc, char** argv) {
  tool::prepareProcess();
  return tool::runProgram(argc, argv);
}

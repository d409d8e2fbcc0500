#include <vorn/vorn.h>

#include <iostream>

// C++11 on purpose: the header asks nothing of its users.
int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: consumer PROJECT\n";
    return 2;
  }
  return VornScanBundle(argv[1], 1) == 1 ? 0 : 1;
}

#include <stdio.h>
#include <vorn/vorn.h>

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: consumer PROJECT\n");
    return 2;
  }
  return VornBundle(argv[1], 0) == 1 ? 0 : 1;
}

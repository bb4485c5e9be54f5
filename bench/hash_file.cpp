// Prints the digest of one file, as the service takes it of each file that it stages.

#include <cstdio>
#include <string>

#include "trust/digest.h"

int main(int argc, char** argv) {
  std::string hex;
  if (argc != 2 || !Vantrell::Sha256File(argv[1], hex)) {
    fprintf(stderr, "hash_file: give one file that can be read\n");
    return 1;
  }
  printf("%s\n", hex.c_str());
  return 0;
}

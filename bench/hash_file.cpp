// Prints the digest of one file, computed by the function that the service uses for staged files.

#include <cstdio>
#include <string>

#include "trust/digest.h"

int main(int argc, char** argv) {
  std::string hex;
  if (argc != 2 || !Vantrell::Sha256File(argv[1], hex)) {
    fprintf(stderr, "hash_file: no readable file; give the path of one file\n");
    return 1;
  }
  printf("%s\n", hex.c_str());
  return 0;
}

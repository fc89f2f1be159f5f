#include <cstdio>

#include "kov/kov.h"

int main() {
  std::printf("%s\n", kovLoadString(28520).c_str());
  return 0;
}

// A property check for fuzz targets: prints what failed and aborts, so that
// both libFuzzer and the replay program report the input.
#pragma once

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(cond)                                                               \
  do {                                                                                 \
    if (!(cond)) {                                                                     \
      std::fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #cond); \
      std::abort();                                                                    \
    }                                                                                  \
  } while (0)

// A property every input must keep. Breaking one aborts, so libFuzzer saves
// the input as a crash artifact just as it does for a sanitizer report.
#pragma once

#include <cstdio>
#include <cstdlib>

#define VEMORA_FUZZ_CHECK(condition)                                                        \
  do {                                                                                      \
    if (!(condition)) {                                                                     \
      std::fprintf(stderr, "%s:%d: property broken: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                         \
    }                                                                                       \
  } while (0)

// True when view lies inside text (an empty view anywhere counts).
template <typename View>
bool Within(View view, View text) {
  return view.empty() ||
         (view.data() >= text.data() && view.data() + view.size() <= text.data() + text.size());
}

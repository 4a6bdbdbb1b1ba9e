#include "runtime/vek/Exception.h"

#include <cstdio>
#include <cstdlib>

namespace Vek {

namespace {
AssertHandler currentHandler = nullptr;
}

void assertHandlerIs(AssertHandler h) { currentHandler = h; }
AssertHandler assertHandler() { return currentHandler; }

void assertFailed(char const* text, char const* file, int line) {
   if (currentHandler) currentHandler(text, file, line);
   std::fprintf(stderr, "Assertion failed: %s (%s:%d)\n", text, file, line);
   std::fflush(stderr);
   std::abort();
}

void throwingAssertHandler(char const* text, char const*, int) {
   throw AssertionFailure(text);
}

}  // namespace Vek

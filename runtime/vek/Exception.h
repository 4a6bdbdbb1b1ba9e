#pragma once
// Faults raised by the runtime: range exceptions for bad values given to value
// types, and the assertion that ends the process on a broken invariant.
#include <stdexcept>
#include <string>

namespace Vek {

class Exception : public std::runtime_error {
 public:
   explicit Exception(std::string const& msg, unsigned long id = 0)
      : std::runtime_error(msg), id_(id) {}
   unsigned long id() const { return id_; }

 private:
   unsigned long id_;
};

// A bad value at an attribute's or value type's range.
class RangeException : public Exception {
 public:
   using Exception::Exception;
};

// Called on a failed assertion with the quoted condition, file and line. The
// default prints the text and aborts; tests may install one that throws.
using AssertHandler = void (*)(char const* text, char const* file, int line);
void assertHandlerIs(AssertHandler h);
AssertHandler assertHandler();
[[noreturn]] void assertFailed(char const* text, char const* file, int line);

// Thrown by the handler that tests install, so that a death path can be tested
// without ending the test process.
class AssertionFailure : public std::logic_error {
 public:
   using std::logic_error::logic_error;
};
void throwingAssertHandler(char const* text, char const* file, int line);

}  // namespace Vek

// The text printed is the condition as written, e.g. "x && \"Internal Error\"".
#define VEK_ASSERT(cond)                                                  \
   do {                                                                   \
      if (!(cond)) [[unlikely]]                                           \
         ::Vek::assertFailed(#cond, __FILE__, __LINE__);                  \
   } while (0)

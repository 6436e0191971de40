// The framework's exceptions. RangeException reports a value outside what a
// type accepts (bad text, a limit exceeded, a required object missing);
// NameInUseException reports a find-or-create whose constructor parameters
// differ from the existing entity's.
#pragma once

#include <stdexcept>
#include <string>

namespace Kiv {

class Exception : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class RangeException : public Exception {
 public:
  using Exception::Exception;
};

class NameInUseException : public Exception {
 public:
  using Exception::Exception;
};

// Throws RangeException("null ValidPtr") when p is null; returns p otherwise.
template <class P>
const P& validPtr(const P& p) {
  if (!p) throw RangeException("null ValidPtr");
  return p;
}

}  // namespace Kiv

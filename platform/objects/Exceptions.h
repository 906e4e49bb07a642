// The exceptions of this system. They are programming errors, and tell their place and reason.
#pragma once

#include <stdexcept>
#include <string>

namespace keldane {

/// A platform exception: a name and a reason, which `what` joins as "name: reason".
class Exception : public std::runtime_error {
 public:
  Exception(const std::string& name, const std::string& reason);
  Exception(const Exception&) = default;
  ~Exception() override;
  const std::string& name() const { return name_; }
  const std::string& reason() const { return reason_; }

 protected:
  Exception(const std::string& name, const std::string& reason, const std::string& text);

 private:
  std::string name_, reason_;
};

/// A failed assertion of the system, which is a bug of the caller. File and line are part of the text that
/// the system shows, so they are fixed. `file` has no extension. `line` is a named constant where it is used,
/// not the present line of the code.
class AssertionFailure : public Exception {
 public:
  AssertionFailure(const std::string& method, const std::string& file, int line,
                   const std::string& description);
  AssertionFailure(const AssertionFailure&) = default;
  ~AssertionFailure() override;
  const std::string& method() const { return method_; }
  const std::string& file() const { return file_; }
  int line() const { return line_; }
  const std::string& description() const { return reason(); }

 private:
  std::string method_, file_;
  int line_;
};

/// Thrown for an argument that the operation does not accept, such as a selector that the method table lacks.
class InvalidArgument : public Exception {
 public:
  explicit InvalidArgument(const std::string& reason) : Exception("NSInvalidArgumentException", reason) {}
  InvalidArgument(const InvalidArgument&) = default;
  ~InvalidArgument() override;
};

/// An index beyond the end of an array.
class RangeError : public Exception {
 public:
  explicit RangeError(const std::string& reason) : Exception("NSRangeException", reason) {}
  RangeError(const RangeError&) = default;
  ~RangeError() override;
};

}  // namespace keldane

#include "platform/objects/Exceptions.h"

namespace keldane {

// The destructors are here so that each class has one type identity in the process, wherever it is thrown and
// caught.

Exception::Exception(const std::string& name, const std::string& reason)
    : Exception(name, reason, name + ": " + reason) {}

Exception::Exception(const std::string& name, const std::string& reason, const std::string& text)
    : std::runtime_error(text), name_(name), reason_(reason) {}

Exception::~Exception() = default;

AssertionFailure::AssertionFailure(const std::string& method, const std::string& file, int line,
                                   const std::string& description)
    : Exception("NSInternalInconsistencyException", description,
                "*** Assertion failure in " + method + ", " + file + ":" + std::to_string(line) + ": " +
                    description),
      method_(method),
      file_(file),
      line_(line) {}

AssertionFailure::~AssertionFailure() = default;

InvalidArgument::~InvalidArgument() = default;

RangeError::~RangeError() = default;

}  // namespace keldane

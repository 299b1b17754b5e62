// What a failure carries, and the exception that carries it out of a method body.
#pragma once

#include <cstdint>
#include <exception>

#include <zrkKVL/Export.h>
#include <zrkKVL/Text.h>

namespace zrk {

struct FailureInfo {
  int32_t Number = 0;
  Text Description;
};

// The runtime's failure numbers that the library raises or tests.
namespace err {
inline constexpr int32_t InvalidCall = 5;
inline constexpr int32_t Overflow = 6;
inline constexpr int32_t OutOfMemory = 7;
inline constexpr int32_t SubscriptOutOfRange = 9;
inline constexpr int32_t DivisionByZero = 11;
inline constexpr int32_t TypeMismatch = 13;
inline constexpr int32_t BadFileNameOrNumber = 52;
inline constexpr int32_t FileNotFound = 53;
inline constexpr int32_t BadFileMode = 54;
inline constexpr int32_t DeviceIOError = 57;
inline constexpr int32_t FileAlreadyExists = 58;
inline constexpr int32_t DiskFull = 61;
inline constexpr int32_t InputPastEndOfFile = 62;
inline constexpr int32_t TooManyFiles = 67;
inline constexpr int32_t PermissionDenied = 70;
inline constexpr int32_t PathFileAccessError = 75;
inline constexpr int32_t PathNotFound = 76;
inline constexpr int32_t ObjectNotSet = 91;
inline constexpr int32_t CantCreateObject = 429;
inline constexpr int32_t NoSuchMember = 438;
inline constexpr int32_t ArgumentNotOptional = 449;
inline constexpr int32_t WrongArgumentCount = 450;
}  // namespace err

// The runtime's own words for a failure number; "Application-defined or object-defined error"
// for numbers it has none for.
ZRK_API Text defaultDescription(int32_t number);

class ZRK_API Failure : public std::exception {
 public:
  explicit Failure(int32_t number);
  Failure(int32_t number, Text description);
  explicit Failure(FailureInfo info) : info_(std::move(info)) {}

  const FailureInfo& info() const { return info_; }
  FailureInfo& info() { return info_; }
  int32_t number() const { return info_.Number; }
  const char* what() const noexcept override { return "zrkKVL failure"; }

 private:
  FailureInfo info_;
};

// The failure for the OS error `errnoValue`, as the file layer reports it.
ZRK_API Failure failureFromErrno(int errnoValue);

// Runs `body`, turning any standard-library exception into the nearest Failure, so that only
// Failure leaves the library.
template <class Body>
decltype(auto) mapExceptions(Body&& body);

ZRK_API FailureInfo infoFromCurrentException();

template <class Body>
decltype(auto) mapExceptions(Body&& body) {
  try {
    return body();
  } catch (const Failure&) {
    throw;
  } catch (...) {
    throw Failure(infoFromCurrentException());
  }
}

}  // namespace zrk

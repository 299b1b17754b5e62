// Failure numbers, their words, and the mapping of OS errors and C++ exceptions onto them.
#include <zrkKVL/Failure.h>

#include <cerrno>
#include <new>
#include <stdexcept>

namespace zrk {

Text defaultDescription(int32_t number) {
  switch (number) {
    case err::InvalidCall:
      return u"Invalid procedure call or argument";
    case err::Overflow:
      return u"Overflow";
    case err::OutOfMemory:
      return u"Out of memory";
    case err::SubscriptOutOfRange:
      return u"Subscript out of range";
    case err::DivisionByZero:
      return u"Division by zero";
    case err::TypeMismatch:
      return u"Type mismatch";
    case err::BadFileNameOrNumber:
      return u"Bad file name or number";
    case err::FileNotFound:
      return u"File not found";
    case err::BadFileMode:
      return u"Bad file mode";
    case err::DeviceIOError:
      return u"Device I/O error";
    case err::FileAlreadyExists:
      return u"File already exists";
    case err::DiskFull:
      return u"Disk full";
    case err::InputPastEndOfFile:
      return u"Input past end of file";
    case err::TooManyFiles:
      return u"Too many files";
    case err::PermissionDenied:
      return u"Permission denied";
    case err::PathFileAccessError:
      return u"Path/File access error";
    case err::PathNotFound:
      return u"Path not found";
    case err::ObjectNotSet:
      return u"Object variable or With block variable not set";
    case err::CantCreateObject:
      return u"ActiveX component can't create object";
    case err::NoSuchMember:
      return u"Object doesn't support this property or method";
    case err::ArgumentNotOptional:
      return u"Argument not optional";
    case err::WrongArgumentCount:
      return u"Wrong number of arguments or invalid property assignment";
    default:
      return u"Application-defined or object-defined error";
  }
}

Failure::Failure(int32_t number) : info_{number, defaultDescription(number)} {}
Failure::Failure(int32_t number, Text description) : info_{number, std::move(description)} {}

Failure failureFromErrno(int e) {
  switch (e) {
    case ENOENT:
      return Failure(err::FileNotFound);
    case ENOTDIR:
      return Failure(err::PathNotFound);
    case EEXIST:
    case ENOTEMPTY:
      return Failure(err::FileAlreadyExists);
    case EACCES:
    case EPERM:
    case EROFS:
    case ETXTBSY:
      return Failure(err::PermissionDenied);
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return Failure(err::DiskFull);
    case EMFILE:
    case ENFILE:
      return Failure(err::TooManyFiles);
    case ENOMEM:
      return Failure(err::OutOfMemory);
    case ENAMETOOLONG:
    case EINVAL:
      return Failure(err::BadFileNameOrNumber);
    case EISDIR:
      return Failure(err::PathFileAccessError);
    case EIO:
      return Failure(err::DeviceIOError);
    default:
      return Failure(err::PathFileAccessError);
  }
}

FailureInfo infoFromCurrentException() {
  try {
    throw;
  } catch (const Failure& f) {
    return f.info();
  } catch (const std::bad_alloc&) {
    return Failure(err::OutOfMemory).info();
  } catch (const std::length_error&) {
    return Failure(err::OutOfMemory).info();
  } catch (const std::out_of_range&) {
    return Failure(err::SubscriptOutOfRange).info();
  } catch (const std::overflow_error&) {
    return Failure(err::Overflow).info();
  } catch (const std::invalid_argument&) {
    return Failure(err::InvalidCall).info();
  } catch (...) {
    return Failure(err::InvalidCall).info();
  }
}

}  // namespace zrk

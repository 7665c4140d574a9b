// Result codes that cross the host boundary.
//
// They are the POSIX error numbers as macOS numbers them, kept numerically on every
// platform: the host compares numbers, not names, so they must never be taken from the
// local <cerrno> or std::errc (Linux, for instance, says 71 where the host means 100).
#pragma once

#include <cstdint>

namespace KALVO::Result {

using Code = std::uint32_t;

inline constexpr Code Success = 0;                // the operation did what was asked
inline constexpr Code NoSuchEntry = 2;            // ENOENT: no entry under that key
inline constexpr Code OutOfMemory = 12;           // ENOMEM: memory ran out; also "buffer too small" for storage reads
inline constexpr Code PermissionDenied = 13;      // EACCES: an exception of unknown type was caught
inline constexpr Code InvalidArgument = 22;       // EINVAL: bad argument, missing storage key, malformed request
inline constexpr Code OutOfRange = 34;            // ERANGE: index past the end
inline constexpr Code ProtocolNotSupported = 43;  // EPROTONOSUPPORT: interface not offered by this object
inline constexpr Code NoBufferSpace = 55;         // ENOBUFS: value read into a buffer larger than the data
inline constexpr Code NotImplemented = 78;        // ENOSYS: unknown command, empty object value
inline constexpr Code OperationCanceled = 89;     // ECANCELED: the host's store failed
inline constexpr Code ProtocolError = 100;        // EPROTO: start failed, unparsable payload, any other failure

}  // namespace KALVO::Result

// SPDX-License-Identifier: Apache-2.0
// Failure causes: internal helpers answer 0 or a negative errno value, and
// the exported functions hand the cause on in errno beside their fixed
// failure results.
#pragma once

#include <cerrno>

namespace kv::detail
{

// The cause the last failing system call reported, as a negative value; EIO
// when it left errno at 0, so that a failure never reads as success.
inline int last_cause()
{
    return errno != 0 ? -errno : -EIO;
}

// Puts `cause` (negative) into errno and answers the caller's failure result.
inline int fail(int cause, int result)
{
    errno = -cause;
    return result;
}

// Puts errno back as it was when the scope began, so that closing what a
// failed call used (or logging the failure) does not hide its cause.
class KeepErrno
{
  public:
    KeepErrno() = default;
    KeepErrno(const KeepErrno&) = delete;
    KeepErrno& operator=(const KeepErrno&) = delete;
    ~KeepErrno()
    {
        errno = saved_;
    }

  private:
    int saved_ = errno;
};

} // namespace kv::detail

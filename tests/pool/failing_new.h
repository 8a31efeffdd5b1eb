/// \file Makes this test program's next nothrow new fail, as an exhausted heap would.
#ifndef NUV_TESTS_POOL_FAILING_NEW_H
#define NUV_TESTS_POOL_FAILING_NEW_H

namespace nuv::test {

/// The next `new (std::nothrow)` in this process returns null.
void FailNextNothrowNew();

}  // namespace nuv::test

#endif  // NUV_TESTS_POOL_FAILING_NEW_H

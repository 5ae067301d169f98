#include "core/CXFileDriver.h"
#include "core/CXRandom.h"
#include "core/CXResult.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <map>
#include <vector>

TEST(Results, WindowsNumbers) {
    const std::map<CXResult, std::vector<uint32_t>> table = {
        {kCXResultOK, {0}},
        {kCXResultEndOfStream, {38}},
        {kCXResultBrokenPipe, {109}},
        {kCXResultInvalidArgument, {6, 87, 230, 487}},
        {kCXResultNoResources, {4, 8, 14, 29, 30, 39, 112}},
        {kCXResultNotFound, {2, 3, 15, 53, 55, 123, 154, 161, 267}},
        {kCXResultAccessDenied, {5, 19, 32}},
        {kCXResultAlreadyExists, {52, 80, 183}},
        {kCXResultTimedOut, {258}},
    };
    std::map<uint32_t, CXResult> named;
    for (const auto& [result, errors] : table) {
        for (const uint32_t error : errors) {
            named[error] = result;
        }
    }
    // Every other number, 33 and 145 among them, is a plain failure.
    for (uint32_t error = 0; error < 2000; ++error) {
        const auto found = named.find(error);
        EXPECT_EQ(CXResultFromWin32Error(error),
                  found != named.end() ? found->second : kCXResultFailed)
            << error;
    }
    EXPECT_EQ(CXResultFromWin32Error(0x80004005U), kCXResultFailed);
}

TEST(Results, PosixNumbers) {
    const std::map<CXResult, std::vector<int>> table = {
        {kCXResultOK, {0}},
        {kCXResultNotFound, {ENOENT, ENOTDIR, ENODEV, ENXIO}},
        {kCXResultAccessDenied, {EACCES, EPERM, EROFS, EISDIR, EBUSY, ETXTBSY}},
        {kCXResultAlreadyExists, {EEXIST}},
        {kCXResultNoResources, {ENOMEM, EMFILE, ENFILE, ENOSPC, EIO}},
        {kCXResultInvalidArgument, {EINVAL, EBADF}},
        {kCXResultBrokenPipe, {EPIPE}},
        {kCXResultTimedOut, {ETIMEDOUT}},
        {kCXResultFailed, {ENOTEMPTY, EXDEV, ELOOP, -1}},
    };
    for (const auto& [result, errors] : table) {
        for (const int error : errors) {
            EXPECT_EQ(CXResultFromErrno(error), result) << error;
        }
    }
}

TEST(Results, DeletionsTellWhatIsInUse) {
    const CXNativeErrors& errors = CXGetNativeErrors();
    EXPECT_EQ(CXResultFromDeleteError(errors.busy), kCXResultInUse);
    EXPECT_EQ(CXResultFromDeleteError(errors.busyOther), kCXResultInUse);
    EXPECT_EQ(CXResultFromDeleteError(errors.accessDenied), kCXResultAccessDenied);
    EXPECT_EQ(CXResultFromDeleteError(0), kCXResultOK);
    EXPECT_EQ(CXResultFromNativeError(errors.busy), kCXResultAccessDenied);
    EXPECT_EQ(CXResultFromOpenError(0), kCXResultOK);
    EXPECT_EQ(CXResultFromNativeError(errors.notFound), kCXResultNotFound);
    EXPECT_EQ(CXResultFromNativeError(errors.pathNotFound), kCXResultNotFound);
    EXPECT_EQ(CXResultFromNativeError(errors.diskFull), kCXResultNoResources);
    EXPECT_EQ(CXResultFromNativeError(errors.deviceFault), kCXResultNoResources);
    EXPECT_EQ(CXResultFromNativeError(errors.exists), kCXResultAlreadyExists);
    EXPECT_EQ(CXResultCertainFailure(kCXResultOK), kCXResultFailed);
    EXPECT_EQ(CXResultCertainFailure(kCXResultNotFound), kCXResultNotFound);
}

TEST(Random, PublishedSequence) {
    // First outputs of the generator's paper for its seed 123456789.
    SeedRandom(123456789);
    for (const uint32_t expected : {3701687786U, 458299110U, 2500872618U, 3633119408U}) {
        EXPECT_EQ(RandomU32(), expected);
    }
    SeedRandom(123456789);
    EXPECT_EQ(RandomBelow(1000), 786U);
    EXPECT_EQ(RandomBelow(1), 0U);
}

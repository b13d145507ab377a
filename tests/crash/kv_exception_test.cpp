// KvException's object model: chain copies, ownership, copy and assignment,
// and throwing it in a host. Its log output is checked in child hosts.
#include <gtest/gtest.h>

#include <stdexcept>

#include "KvDebugHelp.h"

namespace {

[[noreturn]] void ThrowChained(long code) {
    KvException cause(0x80004005, "cause", nullptr, "reader.cpp", 10);
    throw KvException(code, "wrapped", &cause, "writer.cpp", 20);
}

}  // namespace

TEST(KvException, ChainOfThreeIsCopiedDeeplyAndFreedCompletely) {
    const long before = KvExceptionGetLiveCount();
    {
        KvException first(1, "first", nullptr, "a.cpp", 1);
        KvException second(2, "second", &first, "b.cpp", 2);
        EXPECT_EQ(before + 3, KvExceptionGetLiveCount()) << "second holds its own copy of first";
        {
            KvException third(3, "third", &second, "c.cpp", 3);
            EXPECT_EQ(before + 6, KvExceptionGetLiveCount()) << "third holds copies of second and first";
            const KvException* copyOfSecond = third.getLastException();
            ASSERT_NE(nullptr, copyOfSecond);
            EXPECT_NE(&second, copyOfSecond);
            EXPECT_EQ("second", copyOfSecond->getDescription());
            const KvException* copyOfFirst = copyOfSecond->getLastException();
            ASSERT_NE(nullptr, copyOfFirst);
            EXPECT_NE(second.getLastException(), copyOfFirst);
            EXPECT_EQ(1, copyOfFirst->getHResult());
            EXPECT_EQ(nullptr, copyOfFirst->getLastException());
        }
        EXPECT_EQ(before + 3, KvExceptionGetLiveCount());
    }
    EXPECT_EQ(before, KvExceptionGetLiveCount());
}

TEST(KvException, CopyKeepsFieldsAndFirstTwentyStackEntries) {
    KvException cause(5, "cause", nullptr, "x.cpp", 5);
    KvException original(6, "effect", &cause, "y.cpp", 6);
    KvException copy(original);
    EXPECT_EQ(original.getHResult(), copy.getHResult());
    EXPECT_EQ(original.getDescription(), copy.getDescription());
    EXPECT_EQ(original.getFileName(), copy.getFileName());
    EXPECT_EQ(original.getLineNumber(), copy.getLineNumber());
    EXPECT_EQ(original.getThreadID(), copy.getThreadID());
    ASSERT_NE(nullptr, copy.getLastException());
    EXPECT_NE(original.getLastException(), copy.getLastException());
    EXPECT_EQ("cause", copy.getLastException()->getDescription());
    const uint64_t* from = original.getCallStackArray();
    const uint64_t* to = copy.getCallStackArray();
    for (int i = 0; i < 20; ++i) EXPECT_EQ(from[i], to[i]) << i;
    for (int i = 20; i < KvException::kCallStackSize; ++i) EXPECT_EQ(0u, to[i]) << i;
}

// Assignment shares the previous copy; both objects must still free it once.
TEST(KvException, AssignmentSharesPreviousWithoutDoubleFree) {
    const long before = KvExceptionGetLiveCount();
    {
        KvException cause(1, "cause", nullptr, "a.cpp", 1);
        KvException source(2, "source", &cause, "b.cpp", 2);
        KvException target(3, "target", &cause, "c.cpp", 3);
        EXPECT_EQ(before + 5, KvExceptionGetLiveCount());
        target = source;
        EXPECT_EQ(before + 4, KvExceptionGetLiveCount()) << "target's own previous copy was released";
        EXPECT_EQ(source.getLastException(), target.getLastException());
        EXPECT_EQ("source", target.getDescription());
        EXPECT_EQ("b.cpp", target.getFileName());
        EXPECT_EQ(2, target.getHResult());
        for (int i = 0; i < KvException::kCallStackSize; ++i)
            EXPECT_EQ(source.getCallStackArray()[i], target.getCallStackArray()[i]) << i;
        target = target;
        EXPECT_EQ(source.getLastException(), target.getLastException());
        {
            KvException third(4, "third", nullptr, "d.cpp", 4);
            third = source;  // three owners of one copy
            target = third;
        }
        EXPECT_EQ(before + 4, KvExceptionGetLiveCount());
        EXPECT_EQ("cause", target.getLastException()->getDescription());
    }
    EXPECT_EQ(before, KvExceptionGetLiveCount());
}

TEST(KvException, ThrownByTheHostAndCaughtByReference) {
    const long before = KvExceptionGetLiveCount();
    try {
        ThrowChained(0x8007000E);
        FAIL() << "not thrown";
    } catch (const KvException& caught) {
        EXPECT_EQ(static_cast<long>(0x8007000E), caught.getHResult());
        EXPECT_EQ("writer.cpp", caught.getFileName());
        ASSERT_NE(nullptr, caught.getLastException());
        EXPECT_EQ("cause", caught.getLastException()->getDescription());
        EXPECT_EQ(10, caught.getLastException()->getLineNumber());
    }
    EXPECT_EQ(before, KvExceptionGetLiveCount());

    EXPECT_EQ(before, KvExceptionGetLiveCount());
}

// KvException's object model: chain copies, ownership, copy, assignment. (A host
// throwing one and catching it by reference runs in symbols_scenarios.cpp.)
#include <gtest/gtest.h>
#include <string.h>

#include "KvDebugHelp.h"

// Each link and each copy holds its own copy of the chain; a copy keeps twenty stack entries.
TEST(KvException, ChainOfThreeIsCopiedDeeplyAndFreedCompletely) {
    const long before = KvExceptionGetLiveCount();
    {
        KvException first(1, "first", nullptr, "a.cpp", 1);
        KvException second(2, "second", &first, "b.cpp", 2);
        EXPECT_EQ(before + 3, KvExceptionGetLiveCount());
        {
            KvException third(3, "third", &second, "c.cpp", 3);
            EXPECT_EQ(before + 6, KvExceptionGetLiveCount());
            const KvException* copyOfSecond = third.getLastException();
            ASSERT_NE(nullptr, copyOfSecond);
            EXPECT_EQ("second", copyOfSecond->getDescription());
            ASSERT_NE(nullptr, copyOfSecond->getLastException());
            EXPECT_EQ(1, copyOfSecond->getLastException()->getHResult());
            EXPECT_EQ(nullptr, copyOfSecond->getLastException()->getLastException());

            KvException copy(third);
            EXPECT_EQ(before + 9, KvExceptionGetLiveCount());
            EXPECT_NE(copyOfSecond, copy.getLastException());
            for (int i = 0; i < KvException::kCallStackSize; ++i)
                EXPECT_EQ(i < 20 ? third.getCallStackArray()[i] : 0u, copy.getCallStackArray()[i]) << i;
        }
        EXPECT_EQ(before + 3, KvExceptionGetLiveCount());
    }
    EXPECT_EQ(before, KvExceptionGetLiveCount());
}

// Assignment shares the previous copy; every owner must still free it once.
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
        for (int i = 0; i < KvException::kCallStackSize; ++i)
            EXPECT_EQ(source.getCallStackArray()[i], target.getCallStackArray()[i]) << i;
        const KvException& self = target;  // through a reference, as a self-assignment in real code happens
        target = self;
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

// The assigned-from exception may be a member of the target's own chain, one
// link down at a time or two at once: assignment must take what it needs
// before it releases that chain.
TEST(KvException, AssignmentFromItsOwnChain) {
    const long before = KvExceptionGetLiveCount();
    for (bool twoAtOnce : {false, true}) {
        {
            KvException first(1, "first", nullptr, "a.cpp", 1);
            KvException second(2, "second", &first, "b.cpp", 2);
            KvException cur(3, "third", &second, "c.cpp", 3);
            if (twoAtOnce) cur = *cur.getLastException()->getLastException();
            for (int link = 0; link < 2 && cur.getLastException(); ++link) cur = *cur.getLastException();
            EXPECT_EQ("a.cpp", cur.getFileName());
            EXPECT_EQ(1, cur.getHResult());
            EXPECT_EQ(nullptr, cur.getLastException());
        }
        EXPECT_EQ(before, KvExceptionGetLiveCount()) << twoAtOnce;
    }
}

__declspec(noinline) static KvException RaiseInRecipeLoader() {
    return KvException(5, "named stack", nullptr, "r.cpp", 5);
}

// The stack as named text with call-stack logging off (the test program never
// switches it on); a buffer too small for all keeps whole lines.
TEST(KvException, StackTextNamesTheRaisingFunctionWithoutCallStackLogging) {
    ASSERT_FALSE(IsInstrumentationEnabled());
    const KvException raised = RaiseInRecipeLoader();
    char text[8000];
    const int length = KvExceptionGetStackText(&raised, text, sizeof text);
    ASSERT_GT(length, 0) << text;
    EXPECT_EQ(size_t(length), strlen(text));
    const std::string first(text, strchr(text, '\n'));
    EXPECT_NE(std::string::npos, first.find("RaiseInRecipeLoader")) << text;
    EXPECT_NE(std::string::npos, first.find("kv_exception_test.cpp Line ")) << text;

    char small[120];
    EXPECT_EQ(-1, KvExceptionGetStackText(&raised, small, sizeof small));
    EXPECT_EQ(0, strncmp(text, small, strlen(small)));
    EXPECT_TRUE(!*small || small[strlen(small) - 1] == '\n') << small;
    EXPECT_EQ(-2, KvExceptionGetStackText(nullptr, text, sizeof text));
}

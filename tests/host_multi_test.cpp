// Several emulated hosts alive in one process, as the fuzzer keeps them: each keeps its own
// registrations, handles and counts, and a call through a host reaches its own plugin copy.
#include <gtest/gtest.h>

#include <memory>

#include "KxtTest.h"

using namespace kxt_test;

namespace {

xhost::HostOptions withVersion(double version, bool inRuntime = true) {
    xhost::HostOptions o;
    o.version = version;
    o.inRuntime = inRuntime;
    return o;
}

void expectNothingLive(const xhost::Host& h) {
    EXPECT_EQ(h.liveStrings(), 0u) << h.describeLive();
    EXPECT_EQ(h.liveObjects(), 0u) << h.describeLive();
    EXPECT_EQ(h.outstandingStringData(), 0u);
    EXPECT_TRUE(h.misuses().empty()) << h.describeLive();
}

TEST(MultipleHosts, EachKeepsItsRegistrationsAndAnswersForItsOwnVersion) {
    xhost::Host modern(withVersion(2019.03));
    xhost::Host old(withVersion(2012.0, false));
    EXPECT_EQ(xhost::Host::current(), &old);  // the newest is active
    EXPECT_EQ(modern.announcedInterfaceVersion(), 13u);
    EXPECT_EQ(old.announcedInterfaceVersion(), 10u);
    EXPECT_FALSE(modern.modules().empty());
    EXPECT_TRUE(modern.globalMethods().empty());
    EXPECT_TRUE(old.modules().empty());
    EXPECT_FALSE(old.globalMethods().empty());

    // The resolver answers for whichever host is active.
    auto version = [] {
        return reinterpret_cast<double (*)()>(xhost::Host::resolve("REALGetRBVersion"))();
    };
    modern.activate();
    EXPECT_EQ(version(), 2019.03);
    old.activate();
    EXPECT_EQ(version(), 2012.0);

    // Calls alternate between the two and activate their own host.
    for (int round = 0; round < 3; ++round) {
        for (xhost::Host* h : {&modern, &old}) {
            h->activate();  // values belong to the active host
            CallResult r = h->call("EncodingToURLKXT", {S("a b+c"), I(1)});
            EXPECT_EQ(xhost::Host::current(), h);
            ASSERT_FALSE(r.exception);
            EXPECT_EQ(r.value.bytes(), "a+b%2Bc");
        }
    }
    // A value of the other host is refused rather than handed to the wrong plugin copy.
    modern.activate();
    Value foreign = S("made in modern");
    EXPECT_THROW(old.call("EncodingToURLKXT", {foreign, I(1)}), std::invalid_argument);
    foreign = Value();
    expectNothingLive(modern);
    expectNothingLive(old);
}

TEST(MultipleHosts, HandlesAndCountsStayWithTheirOwnHost) {
    xhost::Host a(withVersion(2019.03));
    xhost::Host b(withVersion(2020.02));
    a.activate();
    Value inA = S("belongs to a");
    Value mbInA = MB("xyz");
    b.activate();
    Value inB = S("belongs to b");
    EXPECT_EQ(a.liveStrings(), 1u);
    EXPECT_EQ(a.liveObjects(), 1u);
    EXPECT_EQ(b.liveStrings(), 1u);
    EXPECT_EQ(b.liveObjects(), 0u);

    // A result made in b while a holds values leaves a's counts alone; a's values still read
    // while b is active, and are released into a's bookkeeping.
    CallResult r = b.call("StringXORKXT", {inB, S("k")});
    ASSERT_FALSE(r.exception);
    EXPECT_EQ(b.liveStrings(), 2u);
    EXPECT_EQ(a.liveStrings(), 1u);
    EXPECT_EQ(inA.bytes(), "belongs to a");
    inA = Value();
    mbInA = Value();
    EXPECT_EQ(xhost::Host::current(), &b);
    expectNothingLive(a);
    r = CallResult();
    inB = Value();
    expectNothingLive(b);
}

TEST(MultipleHosts, EachCallReachesItsOwnPluginCopy) {
    // Debugging is the plugin's process-wide state: one copy per host keeps one switch per host.
    xhost::Host a(withVersion(2019.03));
    xhost::Host b(withVersion(2019.03));
    EXPECT_TRUE(a.setDebugging(true));
    EXPECT_TRUE(b.setDebugging(false));
    EXPECT_EQ(a.debugging(), true);
    EXPECT_EQ(b.debugging(), false);
    EXPECT_TRUE(a.setDebugging(false));

    // Failing MemoryBlocks are a switch of one host only.
    a.setFailMemoryBlocks(true);
    a.activate();
    CallResult failed = a.call("_yDecodeMemoryKXT", {Value::memoryBlock("abc")});
    b.activate();
    CallResult fine = b.call("_yDecodeMemoryKXT", {Value::memoryBlock("abc")});
    ASSERT_TRUE(failed.exception);
    EXPECT_EQ(failed.exception->className, "OutOfMemoryException");
    EXPECT_FALSE(fine.exception);
    a.setFailMemoryBlocks(false);
    a.activate();
    CallResult again = a.call("_yDecodeMemoryKXT", {Value::memoryBlock("abc")});
    EXPECT_FALSE(again.exception);
}

TEST(MultipleHosts, DestroyingOneLeavesTheOtherActiveAndWhole) {
    auto first = std::make_unique<xhost::Host>(withVersion(2013.0));
    Value kept;
    {
        xhost::Host second(withVersion(3000.0));
        first->activate();
        kept = S("kept");
        second.activate();
    }
    EXPECT_EQ(xhost::Host::current(), first.get());
    EXPECT_EQ(kept.bytes(), "kept");
    EXPECT_EQ(first->call("EncodingToURLKXT", {kept, I(1)}).value.bytes(), "kept");
    kept = Value();
    expectNothingLive(*first);
    first.reset();
    EXPECT_EQ(xhost::Host::current(), nullptr);
}

// Kept to the end of the process, as the fuzzers keep theirs: a holder at namespace scope is
// destroyed during exit after the host library's own globals. Last in this file, so no other
// test sees the host alive.
std::unique_ptr<xhost::Host> gKept;

TEST(MultipleHosts, AHostKeptInAStaticIsDestroyedAtExit) {
    gKept = std::make_unique<xhost::Host>(withVersion(2019.03));
    EXPECT_EQ(gKept->call("EncodingToURLKXT", {S("a b"), I(1)}).value.bytes(), "a+b");
    expectNothingLive(*gKept);
}

}  // namespace

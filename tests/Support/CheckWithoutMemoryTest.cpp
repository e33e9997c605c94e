// Checks that fail when there is no memory for their text.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include "Support/SysLogEntry.h"
#include "Support/ValidationException.h"
#include "fixtures/DiagnosticTrace.h"
#include "testing/faults/SyslogCapture.h"

namespace {

// Larger allocations of this thread fail.
constinit thread_local std::size_t largest = std::numeric_limits<std::size_t>::max();

// Not inlined: the compiler would take them for a pair that does not match.
[[gnu::noinline]] void* Allocate(std::size_t size) noexcept {
    return size > largest ? nullptr : std::malloc(size == 0 ? 1 : size);
}
[[gnu::noinline]] void Release(void* memory) noexcept { std::free(memory); }

class ShortMemory {
  public:
    explicit ShortMemory(std::size_t bytes) { largest = bytes; }
    ShortMemory(const ShortMemory&) = delete;
    ShortMemory& operator=(const ShortMemory&) = delete;
    ~ShortMemory() { largest = std::numeric_limits<std::size_t>::max(); }
};

}  // namespace

void* operator new(std::size_t size) {
    void* const memory = Allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void operator delete(void* memory) noexcept { Release(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { Release(memory); }

namespace {

class CheckWithoutMemory : public testing::Test {
  protected:
    // What is raised when the memory does not suffice for the check's text.
    template <typename Check>
    static std::string RaisedBy(const Check& check) {
        static const std::string message(100'000, 'm');
        const ShortMemory limit(50'000);
        try {
            check(message.c_str());
        } catch (const std::bad_alloc& failure) {
            return failure.what();
        }
        return "<no std::bad_alloc>";
    }
};

TEST_F(CheckWithoutMemory, EveryCheckRaisesThatAndWritesItToTheTrace) {
    const RunDirectory run(true);
    for (auto* check :
         {Validation2Exception::CheckLogic, Validation2Exception::CheckParameter,
          Validation2Exception::CheckMemoryAllocation, Validation2Exception::CheckOSCall}) {
        EXPECT_EQ(RaisedBy([check](const char* message) { check(false, message, "f.cpp", 7); }),
                  "std::bad_alloc");
    }
    const std::string line = "Exception:std::bad_alloc";
    EXPECT_THAT(run.Trace(), testing::ElementsAre(line, line, line, line));
}

TEST_F(CheckWithoutMemory, NothingIsWrittenWhenTheModeIsOff) {
    const RunDirectory run;
    EXPECT_EQ(RaisedBy([](const char* message) {
                  Validation2Exception::CheckLogic(false, message, "f.cpp", 7);
              }),
              "std::bad_alloc");
    EXPECT_THAT(ListDirectory(run.Path()), testing::IsEmpty());
}

// The system log gets whole texts only.
TEST(SysLogEntryWithoutMemory, TextThatCannotBeHeldIsRaisedAndNotSent) {
    const SyslogCapture syslog;
    static const std::string text(100'000, 't');
    {
        SysLogEntry entry("ZYNAPI", SysLogEntry::kError);
        entry << "before ";
        const ShortMemory limit(50'000);
        EXPECT_THROW(entry << text, std::bad_alloc);
    }
    EXPECT_TRUE(SyslogCapture::Take().empty());
    {
        // Not even a stream's first buffer; the capture's records are smaller.
        const ShortMemory little(300);
        SysLogEntry("ZYNAPI", SysLogEntry::kError) << "std::bad_alloc";
    }
    const std::vector<SyslogRecord> records = SyslogCapture::Take();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].text, "std::bad_alloc");
}

TEST_F(CheckWithoutMemory, WhatCannotEvenBeLoggedIsRaised) {
    const RunDirectory run(true);
    EXPECT_EQ(RaisedBy([](const char* message) {
                  const ShortMemory none(0);
                  Validation2Exception::CheckLogic(false, message, "f.cpp", 7);
              }),
              "std::bad_alloc");
    EXPECT_THAT(ListDirectory(run.Path()), testing::IsEmpty());
}

}  // namespace

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "zyndoctor/Diagnosis.h"
#include "zyndoctor/DiagnosisReport.h"

namespace {

std::string TextOf(const Diagnosis& diagnosis) {
    std::ostringstream text;
    WriteText(text, diagnosis);
    return text.str();
}

TEST(DiagnosisTest, WithoutFindingsTheStatusIsClean) {
    Diagnosis diagnosis;
    diagnosis.Begin("A");
    diagnosis.Say("fact", "so it is");
    EXPECT_EQ(diagnosis.Status(), 0);
    EXPECT_EQ(TextOf(diagnosis), "A\n   so it is\nNothing wrong found.\n");
}

TEST(DiagnosisTest, WhatCouldNotBeLookedAtOutweighsAFinding) {
    Diagnosis diagnosis;
    diagnosis.Begin("A");
    diagnosis.Find("finding", "wrong");
    EXPECT_EQ(diagnosis.Status(), 1);
    EXPECT_EQ(TextOf(diagnosis), "A\n!! wrong\nFindings: 1\n");
    diagnosis.Begin("B");
    diagnosis.MissOut("unknown", "dark");
    EXPECT_EQ(diagnosis.Status(), 2);
    EXPECT_EQ(TextOf(diagnosis), "A\n!! wrong\nB\n?? dark\nNot looked at: 1\nFindings: 1\n");
}

TEST(PrintableTest, ControlCharactersAreWritten) {
    EXPECT_EQ(Printable(std::string("a\0b\n\x1b[m\x7f", 8)), R"(a\x00b\x0a\x1b[m\x7f)");
}

TEST(PrintableTest, UpperControlCharactersAreWritten) {
    EXPECT_EQ(Printable("a\x9b"), R"(a\x9b)");
    EXPECT_EQ(Printable("\xC2\x9b\xC2"), "\\xc2\\x9b\xC2");
}

TEST(PrintableTest, TheSameBytesWithinOtherCharactersStay) {
    // U+00C4, U+201C and U+1F600.
    const std::string text = "\xC3\x84 \xE2\x80\x9C \xF0\x9F\x98\x80 \xC2\xA0";
    EXPECT_EQ(Printable(text), text);
}

}  // namespace

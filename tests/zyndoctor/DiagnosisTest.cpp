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

TEST(DiagnosisTest, ControlCharactersOfARemarkAreEscaped) {
    Diagnosis diagnosis;
    diagnosis.Begin("A");
    diagnosis.Say("file", "a\x1b[m\n\xC2\x9b");
    EXPECT_EQ(TextOf(diagnosis), "A\n   a\\x1b[m\\x0a\\xc2\\x9b\nNothing wrong found.\n");
}

}  // namespace

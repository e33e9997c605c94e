#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <tuple>

#include "TraceFiltering/RememberedAnswers.h"

namespace {

using Answer = RememberedAnswers::Answer;
using Combination = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>;

constexpr std::uint32_t kLastModule = RememberedAnswers::kMaxModules - 1;
constexpr std::uint32_t kLastLabel = RememberedAnswers::kMaxLabels - 1;

TEST(RememberedAnswers, NothingIsKnownAtFirst) {
    RememberedAnswers answers;
    EXPECT_EQ(answers.Find(0, 0, 0), Answer::kUnknown);
    answers.Forget(0, 0, 100);
    answers.Clear();
    EXPECT_EQ(answers.Find(0, 0, 0), Answer::kUnknown);
}

TEST(RememberedAnswers, EachPartOfACombinationCounts) {
    RememberedAnswers answers;
    answers.Store(0, 0, 0, true);
    for (const auto& [module, client, label] :
         {Combination(1, 0, 0), Combination(0, 1, 0), Combination(0, 0, 1),
          Combination(kLastModule, 0, 0), Combination(0, 0xFFFFFFFF, 0),
          Combination(0, 0, kLastLabel)}) {
        EXPECT_EQ(answers.Find(module, client, label), Answer::kUnknown);
        answers.Store(module, client, label, false);
        EXPECT_EQ(answers.Find(module, client, label), Answer::kOff);
    }
    EXPECT_EQ(answers.Find(0, 0, 0), Answer::kOn);
}

TEST(RememberedAnswers, KeysThatDoNotFitAreNotRemembered) {
    RememberedAnswers answers;
    answers.Store(0, 0, 0, true);
    for (const auto& [module, client, label] :
         {Combination(kLastModule + 1, 0, 0), Combination(0, 0, kLastLabel + 1),
          Combination(0xFFFFFFFF, 0, 0), Combination(0, 0, 0xFFFFFFFF)}) {
        answers.Store(module, client, label, false);
        EXPECT_EQ(answers.Find(module, client, label), Answer::kUnknown);
    }
    EXPECT_EQ(answers.Find(0, 0, 0), Answer::kOn) << "another one's place";
    answers.Forget(kLastModule + 1, 0, 1);
    EXPECT_EQ(answers.Find(0, 0, 0), Answer::kOn) << "another one's place";
}

TEST(RememberedAnswers, AnAnswerIsReplaced) {
    RememberedAnswers answers;
    answers.Store(1, 2, 3, true);
    answers.Store(1, 2, 3, false);
    EXPECT_EQ(answers.Find(1, 2, 3), Answer::kOff);
}

TEST(RememberedAnswers, ForgetsTheLabelsOfOneClientInOneModule) {
    RememberedAnswers answers;
    for (std::uint32_t label = 0; label < 40; ++label) {
        answers.Store(1, 2, label, true);
        answers.Store(2, 2, label, true);
        answers.Store(1, 3, label, true);
    }
    answers.Forget(1, 2, 39);
    for (std::uint32_t label = 0; label < 40; ++label) {
        EXPECT_EQ(answers.Find(1, 2, label), label < 39 ? Answer::kUnknown : Answer::kOn);
        EXPECT_EQ(answers.Find(2, 2, label), Answer::kOn);
        EXPECT_EQ(answers.Find(1, 3, label), Answer::kOn);
    }
    answers.Forget(1, 3, std::size_t{1} << 20U);
    EXPECT_EQ(answers.Find(1, 3, 39), Answer::kUnknown);
    answers.Store(1, 2, 5, false);
    EXPECT_EQ(answers.Find(1, 2, 5), Answer::kOff);
}

TEST(RememberedAnswers, ForgettingAModuleThatDoesNotFitForgetsNoOther) {
    // Its number would run over into that of the client.
    RememberedAnswers answers;
    answers.Store(0, 1, 0, true);
    answers.Forget(RememberedAnswers::kMaxModules, 0, 1);
    EXPECT_EQ(answers.Find(0, 1, 0), Answer::kOn);
}

TEST(RememberedAnswers, HoldsAsManyAsItSaysAndThenStartsAnew) {
    RememberedAnswers answers;
    const auto store = [&answers](std::size_t number) {
        answers.Store(static_cast<std::uint32_t>(number % 300),
                      static_cast<std::uint32_t>(number / 300), 3, number % 2 == 0);
    };
    const auto find = [&answers](std::size_t number) {
        return answers.Find(static_cast<std::uint32_t>(number % 300),
                            static_cast<std::uint32_t>(number / 300), 3);
    };
    for (std::size_t number = 0; number < RememberedAnswers::kMaxCombinations; ++number) {
        store(number);
    }
    for (std::size_t number = 0; number < RememberedAnswers::kMaxCombinations; ++number) {
        ASSERT_EQ(find(number), number % 2 == 0 ? Answer::kOn : Answer::kOff) << number;
    }
    store(RememberedAnswers::kMaxCombinations);
    EXPECT_EQ(find(RememberedAnswers::kMaxCombinations), Answer::kOn);
    EXPECT_EQ(find(0), Answer::kUnknown);
    store(0);
    EXPECT_EQ(find(0), Answer::kOn);
}

TEST(RememberedAnswers, RandomUseAgreesWithAMap) {
    const std::uint32_t seed = std::random_device()();
    RecordProperty("seed", std::to_string(seed));
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const auto pick = [&random](std::uint32_t count) {
        return std::uniform_int_distribution<std::uint32_t>(0, count - 1)(random);
    };
    RememberedAnswers answers;
    std::map<Combination, bool> model;
    for (int step = 0; step < 200'000; ++step) {
        const Combination combination(pick(2) * 290 + pick(10), pick(40) * 7'654'321, pick(60));
        const auto& [module, client, label] = combination;
        if (const std::uint32_t what = pick(100'000); what == 0) {
            answers.Clear();
            model.clear();
        } else if (what < 1000) {
            const std::uint32_t count = pick(60);
            answers.Forget(module, client, count);
            for (std::uint32_t i = 0; i < count; ++i) {
                model.erase({module, client, i});
            }
        } else if (what < 40'000) {
            const bool enabled = pick(2) == 0;
            answers.Store(module, client, label, enabled);
            model[combination] = enabled;
        }
        const auto found = model.find(combination);
        const Answer expected = found == model.end() ? Answer::kUnknown
                                : found->second      ? Answer::kOn
                                                     : Answer::kOff;
        ASSERT_EQ(answers.Find(module, client, label), expected) << "step " << step;
    }
}

}  // namespace

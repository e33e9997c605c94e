#include "testing/logs/CallTrace.h"

#include <array>
#include <cstddef>

namespace {

constexpr std::size_t kDeepest = 6;
constexpr std::uint32_t kMissingEndPercent = 4;
constexpr std::uint32_t kInfoPercent = 10;

struct Function {
    std::string_view module;
    std::string_view client;
    std::string_view name;
};

constexpr std::array<Function, 9> kFunctions{{
    {"SessionMgr", "acceptor", "AcceptSession"},
    {"SessionMgr", "acceptor", "CheckLicense"},
    {"NetEngine", "upstream", "Connect"},
    {"NetEngine", "upstream", "SendRequest"},
    {"NetEngine", "downstream", "AwaitReply"},
    {"Storage", "journal", "BeginCommit"},
    {"Storage", "journal", "WritePage"},
    {"Storage", "index", "FindKey"},
    {"Scheduler", "worker", "RunJob"},
}};

}  // namespace

CallTrace::Event CallTrace::Next(std::uint32_t process, std::uint32_t thread, LogRandom& random,
                                 std::string& message) {
    Thread& open = threads_[{process, thread}];
    if (!open.empty() && random.Percent(kInfoPercent)) {
        const Function& function = kFunctions[open.back()];
        message = "still at it, " + std::to_string(random.Below(100)) + " left";
        return {function.module, function.client, "Info"};
    }
    const bool enter = open.empty() || (open.size() < kDeepest && random.Percent(50));
    if (enter) {
        open.push_back(random.Below(kFunctions.size()));
        const Function& function = kFunctions[open.back()];
        // A blank or a bracket ends the name.
        constexpr std::array<std::string_view, 4> kBegins{"(id=", " for ", "[", "{"};
        message = function.name;
        message += kBegins[random.Below(kBegins.size())];
        message += std::to_string(random.Below(1000));
        return {function.module, function.client, "Entry"};
    }
    if (open.size() > 1 && random.Percent(kMissingEndPercent)) {
        open.pop_back();
    }
    const Function& function = kFunctions[open.back()];
    open.pop_back();
    message = std::string(function.name) + " done";
    return {function.module, function.client, "Exit"};
}

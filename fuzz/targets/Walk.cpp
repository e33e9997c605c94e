// The walk over the blocks of a damaged log: with the data of the blocks and without it, in one
// piece and cut over several, from a file that can be read anywhere and from one that cannot.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "LogReading/BlockWalker.h"
#include "LogReading/ByteSource.h"
#include "LogReading/LogData.h"
#include "LogReading/StreamDecoder.h"
#include "targets/LogCase.h"

namespace {

std::shared_ptr<ByteSource> SourceOf(std::string_view bytes) {
    return std::make_shared<StreamSource>(
        nullptr,
        [bytes] {
            // In small pieces, as a pipe may give them.
            return MakeStreamDecoder(
                Compression::kNone, [left = bytes](char* buffer, std::size_t room) mutable {
                    const std::size_t count = std::min({left.size(), room, std::size_t{100}});
                    std::copy_n(left.data(), count, buffer);
                    left.remove_prefix(count);
                    return count;
                });
        },
        [](DecoderEnd /*end*/) {});
}

std::string TextOf(std::uint64_t number) { return std::to_string(number) + ' '; }

// What the walk finds, in words; it covers every byte once, in order.
std::string Walk(LogData& data, std::string_view log, LogEnd end, bool hop) {
    BlockWalker walker(data, end);
    std::string found;
    std::uint64_t next = 0;
    while (true) {
        switch (hop ? walker.Hop() : walker.Next()) {
            case BlockWalker::Step::kBlock: {
                const FoundBlock& block = walker.Block();
                Require(block.position == next && block.End() <= log.size(), "a block elsewhere");
                if (block.data != nullptr) {
                    Require(
                        log.substr(static_cast<std::size_t>(block.dataPosition), block.dataBytes) ==
                            std::string_view(block.data, block.dataBytes),
                        "other data");
                }
                next = block.End();
                found += "block " + TextOf(block.position) + TextOf(block.dataBytes);
                break;
            }
            case BlockWalker::Step::kDamage:
                Require(walker.Damage().position == next, "damage elsewhere");
                next += walker.Damage().bytes;
                found +=
                    "damage " + TextOf(walker.Damage().position) + TextOf(walker.Damage().bytes);
                break;
            case BlockWalker::Step::kEnd:
                Require(next == log.size(), "an end elsewhere");
                return found;
            case BlockWalker::Step::kUnfinished:
                Require(end != LogEnd::kFinal && next < log.size(), "unfinished elsewhere");
                return found + "unfinished";
        }
    }
}

}  // namespace

int ZynFuzzWalk(FuzzInput input) {
    const LogCase log(input);
    std::vector<std::size_t> places{0, log.log.size()};
    for (std::size_t i = 1; i < log.files; ++i) {
        places.push_back(log.words[i - 1] % (log.log.size() + 1));
    }
    std::sort(places.begin(), places.end());
    for (const LogEnd end : {LogEnd::kFinal, LogEnd::kLive, LogEnd::kFollowed}) {
        LogData whole;
        whole.Add("whole", SourceOf(log.log), 0);
        LogData cut;
        for (std::size_t i = 0; i + 1 < places.size(); ++i) {
            cut.Add("piece", SourceOf(log.log.substr(places[i], places[i + 1] - places[i])), 0);
        }
        LogData held;
        held.Add("held", SourceOf(log.log), 0);
        held.Hold(0);
        const std::string once = Walk(whole, log.log, end, false);
        RequireEqual(Walk(cut, log.log, end, false), once, "the cut log has other blocks");
        RequireEqual(Walk(held, log.log, end, true), once, "hopping finds other blocks");
        RequireEqual(Walk(held, log.log, end, false), once, "the second walk finds other blocks");
    }
    return 0;
}

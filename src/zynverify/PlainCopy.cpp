#include "zynverify/PlainCopy.h"

#include <cstddef>

namespace {

constexpr std::size_t kPiece = std::size_t{64} * 1024;

}  // namespace

void PlainCopy::Append(ByteSource& source, std::uint64_t dataBegin, const std::string& shownPath) {
    std::vector<char> piece(kPiece);
    if (size_ == 0) {
        const std::string& header = ZynBinaryFileOutputSupport::GetHeader();
        file_.WriteAt(0, header.data(), header.size());
        size_ = header.size();
    }
    std::uint64_t bytes = 0;
    while (const std::size_t count =
               source.ReadAt(dataBegin + bytes, piece.data(), 1, piece.size(), false)) {
        file_.WriteAt(size_ + bytes, piece.data(), count);
        bytes += count;
    }
    size_ += bytes;
    files_.push_back({.path = shownPath, .headerBytes = kLogHeaderBytes, .dataBytes = bytes});
}

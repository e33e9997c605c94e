// What the forms with one field for everything that is known of a record have in common.
#ifndef ZYN_ZYNLOGCAT_RECORDFIELDS_H
#define ZYN_ZYNLOGCAT_RECORDFIELDS_H

#include <array>
#include <string>
#include <string_view>

#include "TraceData/RecordDecoder.h"

// The name parts of a record, in the order of RecordValues::names.
inline constexpr std::array kNameParts{DecodedRecord::kModule, DecodedRecord::kClient,
                                       DecodedRecord::kLabel};

// Text made of something that most records share with the one before: a block's host, a file.
class RepeatedText {
  public:
    // make(key): the text for it.
    template <typename Make>
    [[nodiscard]] const std::string& For(std::string_view key, Make&& make) {
        if (!made_ || key != key_) [[unlikely]] {
            text_ = make(key);
            key_ = key;
            made_ = true;
        }
        return text_;
    }

  private:
    std::string key_;
    std::string text_;
    bool made_ = false;
};

#endif

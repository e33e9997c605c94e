#include "zynlogcat/OutputForm.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array<FormKind, 7> kForms{{{"columns", MakeColumnsForm, true},
                                          {"short", MakeShortForm, true},
                                          {"json", MakeJsonForm, true},
                                          {"csv", MakeCsvForm, true},
                                          {"count", MakeCountForm, false},
                                          {"count-json", MakeCountJsonForm, false},
                                          {"timeline", MakeTimelineForm, false}}};

}  // namespace

const FormKind* FindForm(std::string_view name) noexcept {
    const auto* const found = std::find_if(
        kForms.begin(), kForms.end(), [name](const FormKind& form) { return form.name == name; });
    return found == kForms.end() ? nullptr : found;
}

std::string FormNames() {
    std::string names;
    for (const FormKind& form : kForms) {
        names.append(names.empty() ? "" : ", ").append(form.name);
    }
    return names;
}

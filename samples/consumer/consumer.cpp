// A trace point in C++, in a program that has names of its own for what the library has inside.
#include <ZynANSIAPI/ZynANSIAPI.h>

#include <iostream>

class Logging {
  public:
    explicit Logging(const char* text) noexcept;
    const char* Text() const noexcept { return text_; }

  private:
    const char* text_;
};

Logging::Logging(const char* text) noexcept : text_(text) {}

int main() {
    static_assert(noexcept(ZynPause()), "a trace point never throws");
    int module = -1;
    int label = -1;
    if (ZynGetModuleHandle("consumer", &module) != 0 || ZynGetLabelHandle("Debug", &label) != 0 ||
        ZynRegisterClient(module, 1, "C1") != 0) {
        return 1;
    }
    const Logging state(ZynTraceEnabledEx(module, 1, label) != 0 ? "on" : "off");
    std::cout << "tracing is " << state.Text() << '\n';
    return 0;
}

/* A trace point in C: two handles, and the question that stands in front of every trace call. */
#include <ZynANSIAPI/ZynANSIAPI.h>
#include <stdio.h>

int main(void) {
    int module = -1;
    int label = -1;
    if (ZynGetModuleHandle("consumer", &module) != 0 || ZynGetLabelHandle("Debug", &label) != 0) {
        return 1;
    }
    printf("tracing is %s\n", ZynTraceEnabledEx(module, ZYN_NO_CLIENT, label) ? "on" : "off");
    return 0;
}

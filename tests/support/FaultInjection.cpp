#include "support/FaultInjection.h"

FaultInjection::FaultInjection(const Fault& fault) : point_(fault.point) {
    libccalls::Set(point_, {.first = fault.first, .count = fault.count, .error = fault.error});
}

FaultInjection::~FaultInjection() { libccalls::Clear(point_); }

unsigned FaultInjection::Calls() const { return libccalls::Calls(point_); }

// The entry point of zyn-doctor.

#include <cstdlib>
#include <exception>
#include <iostream>

#include "Support/WantOfMemory.h"
#include "zyndoctor/Checks.h"
#include "zyndoctor/Diagnosis.h"
#include "zyndoctor/DiagnosisReport.h"
#include "zyndoctor/DoctorOptions.h"

namespace {

int Run(const DoctorOptions& options) {
    const Diagnosis diagnosis = DiagnoseHost();
    if (options.json) {
        WriteJson(std::cout, diagnosis);
    } else {
        WriteText(std::cout, diagnosis);
    }
    if (!std::cout.flush()) {
        std::cerr << "zyn-doctor: the report could not be written\n";
        return Diagnosis::kCouldNotLook;
    }
    return diagnosis.Status();
}

}  // namespace

int main(int argc, char** argv) {
    EndWithoutMemory("zyn-doctor: std::bad_alloc\n", Diagnosis::kCouldNotLook);
    try {
        const DoctorOptions options = ParseDoctorOptions(argc, argv);
        if (options.mistaken) {
            std::cerr << "Try 'zyn-doctor --help'.\n";
            return Diagnosis::kCouldNotLook;
        }
        if (options.help) {
            std::cout << kDoctorUsage;
        } else if (options.version) {
            std::cout << "zyn-doctor " ZYN_VERSION "\n";
        } else {
            return Run(options);
        }
        return std::cout.flush() ? Diagnosis::kClean : Diagnosis::kCouldNotLook;
    } catch (const std::exception& failure) {
        std::cerr << "zyn-doctor: " << failure.what() << '\n';
        return Diagnosis::kCouldNotLook;
    }
}

// The command line of zyn-doctor.
#ifndef ZYN_ZYNDOCTOR_DOCTOROPTIONS_H
#define ZYN_ZYNDOCTOR_DOCTOROPTIONS_H

struct DoctorOptions {
    bool json = false;
    bool help = false;
    bool version = false;
    bool mistaken = false;  // reported on standard error
};

extern const char* const kDoctorUsage;

// Parses with getopt_long, which keeps state: once per process.
[[nodiscard]] DoctorOptions ParseDoctorOptions(int argc, char** argv);

#endif

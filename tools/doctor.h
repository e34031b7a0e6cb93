// Declares the verb "doctor".
#ifndef WQZ_TOOL_DOCTOR_H
#define WQZ_TOOL_DOCTOR_H

#include <string>

struct Doctor_Options {
    std::string camera;    ///< only this one, as the user typed it; empty for all
    bool capture = false;  ///< capture a few frames in each format
    bool json = false;
};

/// Looks at what usually keeps cameras from working, and prints what it found with the remedies. Starts each camera for
/// a moment, which shows whether another program holds it.
/// @return the exit status: 0 when nothing is wrong, 1 with findings
int Run_Doctor(const Doctor_Options& options);

#endif  // WQZ_TOOL_DOCTOR_H

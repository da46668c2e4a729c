// qavlua check FILE...: a static check of device scripts against the script-function catalogue.
#pragma once

#include <string>
#include <vector>

// Reports, as "FILE:LINE: message" lines on standard output, syntax errors, calls of unknown
// library (or zakhost) functions and library calls whose argument count lies outside what the
// function takes. Returns 0 when every file is clean, 1 on findings, 2 on a usage error or an
// unreadable file.
int qavlua_check(const std::vector<std::string> &files);

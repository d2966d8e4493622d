// `velkor km`: a complete Kaplan-Meier analysis of a CSV file, printed as aligned tables.
#pragma once

namespace velkor_cli {

// Usage text of the command.
const char* KmUsage();

// Runs the command on argv[0..argc-1] (the arguments after "km"). Returns the process exit code:
// 0 success, 1 a data condition that stops the analysis, 2 a usage or file error.
int RunKmCommand(int argc, char** argv);

}  // namespace velkor_cli

#include "tools/zmv/command_line.h"

int main(int argc, char** argv) { return zmv::tool::RunCommandLine(argc, argv); }

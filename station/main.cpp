#include "CommandLine.h"

int main(int argc, char** argv) { return station::runCommandLine(argc, argv); }

#pragma once

// Prints the fixed help text of 66 lines on standard output.
void printUsage();

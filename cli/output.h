#pragma once

// Before anything is printed.
void prepareOutput();

// The one way to print a result: a line on standard output, flushed before the call
// returns, so that it stays in order with standard error and with what else the process
// prints there, and can be followed through a pipe.
void printLine(const char* format, ...) __attribute__((format(printf, 1, 2)));

// True once a line could not be written (a full disk, a closed descriptor).
bool outputFailed();

// The exit status of a run that ends with `status`: 1, after a line on standard error,
// when output was lost.
int statusAfterOutput(int status);

#pragma once
// The daemon behind `main`.

/** Runs the server that the command line describes, and returns when it has stopped. */
void main_int(int argc, const char** argv);

#pragma once
// The daemon behind `main`.

/** Runs the server described by the command line; returns when it has stopped. */
void main_int(int argc, const char** argv);

// A program that uses only the trace channel of mavkit.
#include "mavkit/diag/MavTrace.h"

int main(int argc, char**) { MavTrace(LEVEL_INFO, 0)("%d arguments\n", argc); }

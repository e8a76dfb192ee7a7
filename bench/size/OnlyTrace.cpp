// A program that takes nothing of mavkit but the trace channel.
#include "mavkit/diag/MavTrace.h"

int main(int argc, char**) { MavTrace(LEVEL_INFO, 0)("%d arguments\n", argc); }

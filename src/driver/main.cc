#include "driver/run.h"

int main(int argc, char* argv[]) { return harbix::run_program(argc, argv); }

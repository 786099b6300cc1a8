#include "crvconfd/session/program.h"

int main(int argc, char** argv) {
    return crv::runProgram(argc, argv);
}

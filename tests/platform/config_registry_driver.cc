// Built by config_test.cpp twice: against the Linux key tree, and with mingw
// for Wine's registry. Prints the transcript of the key operations.
#include "config_registry_checks.h"
#include <cstdio>

int main(int argc, char** argv) {
    printf("%s", registryTranscript(argc > 1 ? argv[1] : "tmaintest").c_str());
    return 0;
}

#include <iostream>

#include "cli/CommandLine.hpp"
#include "platform/Clock.hpp"
#include "platform/Shell.hpp"

int main(int argc, char** argv) {
    try {
        quorvane::Shell shell;
        quorvane::SystemClock clock;
        return quorvane::runCommandLine(argc, argv, std::cout, std::cerr, shell, clock);
    } catch (...) {
        // The command line catches what it can explain; this is the last resort.
        std::cerr << "quorvane: stopped by an unexpected error\n";
        return 1;
    }
}

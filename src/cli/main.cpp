#include <iostream>

#include "app/CommandLine.hpp"
#include "platform/Clock.hpp"
#include "platform/Shell.hpp"

int main(int argc, char** argv) {
    quorvane::Shell shell;
    quorvane::SystemClock clock;
    return quorvane::runCommandLine(argc, argv, std::cout, std::cerr, shell, clock);
}

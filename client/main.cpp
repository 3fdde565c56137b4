#include <cstdio>

#include "client/interrupt.h"
#include "client/program.h"

int main(int argc, char** argv) {
    brumectl::interrupt::install();
    try {
        return brumectl::Program().run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const brumectl::Interrupted& e) {
        fflush(nullptr);
        brumectl::interrupt::die_by(e.signum());
    }
}

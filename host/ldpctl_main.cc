// ldpctl: configures and inspects a running ldp-agent.
#include <iostream>

#include "host/Ctl.h"

int main(int argc, char** argv) {
   return Host::runCtl(std::vector<std::string>(argv + 1, argv + argc), std::cout, std::cerr);
}

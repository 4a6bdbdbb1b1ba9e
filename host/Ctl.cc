#include "host/Ctl.h"

#include <fstream>
#include <iostream>
#include <sstream>

#include <unistd.h>

#include "host/Control.h"
#include "host/Show.h"

namespace Host {

std::string ctlUsage() {
   std::string u =
      "usage: ldpctl [--socket PATH] COMMAND\n"
      "  apply FILE                       replace the running configuration with FILE\n"
      "  config STATEMENT...              apply statements, one per argument, to the running\n"
      "                                   configuration ('-' reads them from standard input)\n"
      "  write                            save the running configuration to the agent's file\n"
      "  clear neighbor A.B.C.D [vrf NAME]  reset the session with a neighbour\n"
      "  clear router-id [vrf NAME]       choose the router id again\n"
      "  DUMP_SCHEDSTATS [detail] [debug] [history] [clear]\n"
      "                                   the agent's scheduler statistics\n";
   for (auto const& c : showCommands()) u += "  " + c + " [--json]\n";
   return u;
}

int runCtl(std::vector<std::string> const& argsIn, std::ostream& out, std::ostream& err) {
   std::vector<std::string> args = argsIn;
   std::string socket = defaultSocketPath;
   if (args.size() >= 1 && args[0] == "--socket") {
      if (args.size() < 2) {
         err << "ldpctl: --socket needs a path\n";
         return 2;
      }
      socket = args[1];
      args.erase(args.begin(), args.begin() + 2);
   }
   if (args.empty() || args[0] == "--help" || args[0] == "help") {
      (args.empty() ? err : out) << ctlUsage();
      return args.empty() ? 2 : 0;
   }
   std::string const& verb = args[0];
   std::string command, text;
   if (verb == "apply") {
      if (args.size() != 2) {
         err << "ldpctl: usage: apply FILE\n";
         return 2;
      }
      std::ifstream in(args[1]);
      if (!in) {
         err << "ldpctl: can't read " << args[1] << "\n";
         return 2;
      }
      std::ostringstream os;
      os << in.rdbuf();
      command = "apply";
      text = os.str();
   } else if (verb == "config") {
      if (args.size() < 2) {
         err << "ldpctl: usage: config STATEMENT... (for example: config 'mpls ldp' "
                "'router-id 1.1.1.1')\n";
         return 2;
      }
      command = "config";
      if (args.size() == 2 && args[1] == "-") {
         std::ostringstream os;
         os << std::cin.rdbuf();
         text = os.str();
      } else {
         for (std::size_t i = 1; i < args.size(); ++i) {
            if (args[i].find('\n') != std::string::npos) {
               err << "ldpctl: a statement is one line\n";
               return 2;
            }
            text += args[i] + "\n";
         }
      }
   } else if (verb == "show" || verb == "clear" || verb == "DUMP_SCHEDSTATS" || verb == "ping" ||
              verb == "write") {
      if (verb == "show" && args.size() < 2) {
         err << "ldpctl: show what? The commands are:\n";
         for (auto const& c : showCommands()) err << "  " << c << " [--json]\n";
         return 2;
      }
      for (auto const& a : args) {
         if (a.find('\n') != std::string::npos) {
            err << "ldpctl: an argument is one line\n";
            return 2;
         }
         command += (command.empty() ? "" : " ") + a;
      }
   } else {
      err << "ldpctl: unknown command '" << verb << "'\n" << ctlUsage();
      return 2;
   }
   ControlReply reply;
   std::string reason;
   if (verb == "show" && command.find(" --follow") != std::string::npos) {
      // Follows the event monitor: asks for the lines after the last one
      // seen, once a second, until interrupted.
      std::string base = command;
      base.erase(base.find(" --follow"), 9);
      U64 after = 0;
      bool first = true;
      for (;;) {
         std::string c = base + " --raw";
         if (!first) c += " --after " + std::to_string(after);
         if (!controlRequest(socket, c, "", &reply, &reason)) {
            err << "ldpctl: " << reason << "\n";
            return 3;
         }
         if (!reply.ok) {
            err << reply.body;
            return 1;
         }
         std::istringstream in(reply.body);
         std::string head, line;
         in >> head >> after;
         std::getline(in, line);
         while (std::getline(in, line)) out << line << "\n";
         out.flush();
         first = false;
         ::sleep(1);
      }
   }
   if (!controlRequest(socket, command, text, &reply, &reason)) {
      err << "ldpctl: " << reason << "\n";
      return 3;
   }
   (reply.ok ? out : err) << reply.body;
   return reply.ok ? 0 : 1;
}

}  // namespace Host

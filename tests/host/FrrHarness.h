#pragma once
// FRR's zebra and ldpd in a network namespace, as a black-box peer, and the
// reason why they can't run here.
#include "tests/host/HostHarness.h"

namespace HostTest {

constexpr char kFrrDir[] = "/usr/lib/frr";

// zebra and ldpd of FRR in a namespace, each a daemon with its pid file.
class FrrRouter {
 public:
   FrrRouter(std::string ns, std::string dir) : ns_(std::move(ns)), dir_(std::move(dir)) {}
   ~FrrRouter() { stop(); }
   bool start(std::string const& ldpdConf) {
      sh("mkdir -p " + dir_);
      std::ofstream(dir_ + "/zebra.conf") << "hostname frr\n";
      std::ofstream(dir_ + "/ldpd.conf") << ldpdConf;
      // The daemons drop to the frr user, which must reach its files.
      sh("chown -R frr:frr " + dir_);
      started_ = true;
      return daemon("zebra", "") && daemon("ldpd", " --ctl_socket " + dir_);
   }
   void stop() {
      if (!started_) return;
      started_ = false;
      for (char const* d : {"ldpd", "zebra"}) {
         std::string pid = pidOf(d);
         if (!pid.empty()) sh("kill -TERM " + pid);
      }
      for (char const* d : {"ldpd", "zebra"}) {
         std::string pid = pidOf(d);
         waitFor([&] { return pid.empty() || sh("kill -0 " + pid) != 0; }, 10.0);
      }
   }
   // A vtysh command's JSON answer.
   Json show(std::string const& command) const {
      RunResult r = run({"vtysh", "--vty_socket", dir_, "-c", command}, dir_);
      return parseJson(r.out);
   }
   // Statements in vtysh's configuration mode, one per element, from the top
   // level (as "l2vpn NAME type vpls", then what goes under it); true when
   // vtysh took them all.
   bool configure(std::vector<std::string> const& lines) const {
      std::vector<std::string> argv{"vtysh", "--vty_socket", dir_, "-c", "configure terminal"};
      for (auto const& l : lines) {
         argv.push_back("-c");
         argv.push_back(l);
      }
      argv.push_back("-c");
      argv.push_back("end");
      RunResult r = run(argv, dir_);
      return r.code == 0 && r.out.find('%') == std::string::npos;
   }
   // The neighbour's state as FRR reports it ("OPERATIONAL", ...), or empty.
   std::string neighborState(std::string const& id) const {
      Json j = show("show mpls ldp neighbor json");
      for (auto const& n : j["neighbors"].a)
         if (n["neighborId"].str() == id) return n["state"].str();
      return "";
   }

 private:
   std::string pidOf(char const* daemon) const {
      std::string p = slurp(dir_ + "/" + daemon + ".pid");
      while (!p.empty() && !isdigit(static_cast<unsigned char>(p.back()))) p.pop_back();
      return p;
   }
   bool daemon(std::string const& name, std::string const& extra) {
      std::string cmd = "ip netns exec " + ns_ + " " + kFrrDir + "/" + name + " -d -N " + ns_ +
                        " -f " + dir_ + "/" + name + ".conf -i " + dir_ + "/" + name + ".pid -z " +
                        dir_ + "/zserv.api --vty_socket " + dir_ + extra;
      return sh(cmd) == 0;
   }
   std::string ns_, dir_;
   bool started_ = false;
};

inline std::string frrUnavailable() {
   std::string why = realHostUnavailable();
   if (!why.empty()) return why;
   if (access((std::string(kFrrDir) + "/ldpd").c_str(), X_OK) != 0) return "needs FRR (ldpd)";
   if (sh("vtysh --help") != 0 && sh("which vtysh") != 0) return "needs FRR's vtysh";
   if (sh("id frr") != 0) return "needs FRR's frr user";
   return "";
}

}  // namespace HostTest

#pragma once
// Real processes in real network namespaces for the tests of the daemon:
// namespaces that the test makes and removes, ldp-agent processes started in
// them, ldpctl runs with their output, a small JSON reader for the answers,
// and bounded polling.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace HostTest {

// ---- JSON ----

struct Json {
   enum Kind { null_, str_, num_, boolean_, object_, array_ } kind = null_;
   std::string s;
   double n = 0;
   bool b = false;
   std::map<std::string, Json> o;
   std::vector<Json> a;

   Json const& operator[](std::string const& k) const {
      static Json const none;
      auto it = o.find(k);
      return it == o.end() ? none : it->second;
   }
   Json const& operator[](std::size_t i) const {
      static Json const none;
      return i < a.size() ? a[i] : none;
   }
   bool isNull() const { return kind == null_; }
   std::string str() const { return kind == str_ ? s : ""; }
};

class JsonReader {
 public:
   explicit JsonReader(std::string const& t) : t_(t) {}
   bool parse(Json* out) {
      ws();
      if (!value(out)) return false;
      ws();
      return p_ == t_.size();
   }

 private:
   void ws() {
      while (p_ < t_.size() && isspace(static_cast<unsigned char>(t_[p_]))) ++p_;
   }
   bool lit(char const* l) {
      std::size_t n = strlen(l);
      if (t_.compare(p_, n, l) != 0) return false;
      p_ += n;
      return true;
   }
   bool string(std::string* s) {
      if (p_ >= t_.size() || t_[p_] != '"') return false;
      ++p_;
      while (p_ < t_.size() && t_[p_] != '"') {
         char c = t_[p_++];
         if (c == '\\' && p_ < t_.size()) {
            char e = t_[p_++];
            if (e == 'n')
               c = '\n';
            else if (e == 't')
               c = '\t';
            else if (e == 'u') {
               p_ += 4;
               c = '?';
            } else
               c = e;
         }
         s->push_back(c);
      }
      if (p_ >= t_.size()) return false;
      ++p_;
      return true;
   }
   bool value(Json* v) {
      ws();
      if (p_ >= t_.size()) return false;
      char c = t_[p_];
      if (c == '{') {
         v->kind = Json::object_;
         ++p_;
         ws();
         if (p_ < t_.size() && t_[p_] == '}') return ++p_, true;
         for (;;) {
            ws();
            std::string k;
            if (!string(&k)) return false;
            ws();
            if (p_ >= t_.size() || t_[p_++] != ':') return false;
            if (!value(&v->o[k])) return false;
            ws();
            if (p_ < t_.size() && t_[p_] == ',') {
               ++p_;
               continue;
            }
            return p_ < t_.size() && t_[p_++] == '}';
         }
      }
      if (c == '[') {
         v->kind = Json::array_;
         ++p_;
         ws();
         if (p_ < t_.size() && t_[p_] == ']') return ++p_, true;
         for (;;) {
            v->a.emplace_back();
            if (!value(&v->a.back())) return false;
            ws();
            if (p_ < t_.size() && t_[p_] == ',') {
               ++p_;
               continue;
            }
            return p_ < t_.size() && t_[p_++] == ']';
         }
      }
      if (c == '"') {
         v->kind = Json::str_;
         return string(&v->s);
      }
      if (lit("true")) return v->kind = Json::boolean_, v->b = true, true;
      if (lit("false")) return v->kind = Json::boolean_, v->b = false, true;
      if (lit("null")) return v->kind = Json::null_, true;
      char* end = nullptr;
      v->n = strtod(t_.c_str() + p_, &end);
      if (end == t_.c_str() + p_) return false;
      v->kind = Json::num_;
      p_ = std::size_t(end - t_.c_str());
      return true;
   }
   std::string const& t_;
   std::size_t p_ = 0;
};

inline Json parseJson(std::string const& text) {
   Json j;
   JsonReader r(text);
   if (!r.parse(&j)) return Json();
   return j;
}

// ---- Processes ----

inline std::string selfDir() {
   char buf[4096];
   ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
   if (n <= 0) return ".";
   std::string p(buf, std::size_t(n));
   return p.substr(0, p.rfind('/'));
}

// The programs under test: next to the test's directory in the build tree,
// or where LDP_AGENT_BIN / LDPCTL_BIN say.
inline std::string agentBin() {
   if (char const* e = getenv("LDP_AGENT_BIN")) return e;
   return selfDir() + "/../ldp-agent";
}
inline std::string ctlBin() {
   if (char const* e = getenv("LDPCTL_BIN")) return e;
   return selfDir() + "/../ldpctl";
}

struct RunResult {
   int code = -1;
   std::string out;
   std::string err;
};

inline std::string slurp(std::string const& path) {
   std::ifstream in(path);
   std::ostringstream os;
   os << in.rdbuf();
   return os.str();
}

// Runs a program to its end, with its output in files of dir.
inline RunResult run(std::vector<std::string> const& argv, std::string const& dir,
                     std::string const& input = "") {
   static int seq = 0;
   std::string base = dir + "/run" + std::to_string(++seq);
   std::string inPath = base + ".in";
   { std::ofstream(inPath) << input; }
   pid_t pid = fork();
   if (pid == 0) {
      int in = open(inPath.c_str(), O_RDONLY);
      int out = open((base + ".out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      int err = open((base + ".err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      dup2(in, 0);
      dup2(out, 1);
      dup2(err, 2);
      std::vector<char*> args;
      for (auto const& a : argv) args.push_back(const_cast<char*>(a.c_str()));
      args.push_back(nullptr);
      execvp(args[0], args.data());
      _exit(127);
   }
   RunResult r;
   int st = 0;
   waitpid(pid, &st, 0);
   r.code = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
   r.out = slurp(base + ".out");
   r.err = slurp(base + ".err");
   return r;
}

inline int sh(std::string const& cmd) {
   int st = system((cmd + " >/dev/null 2>&1").c_str());
   return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}

// Polls cond every 100 ms until it holds or the deadline passes.
inline bool waitFor(std::function<bool()> const& cond, double seconds) {
   auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(long(seconds * 1000));
   for (;;) {
      if (cond()) return true;
      if (std::chrono::steady_clock::now() >= end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
   }
}

// A network namespace made by the test, removed with everything in it.
class Netns {
 public:
   explicit Netns(std::string name) : name_(std::move(name)) {
      sh("ip netns del " + name_);
      ok_ = sh("ip netns add " + name_) == 0 && ip("link set lo up");
   }
   ~Netns() { sh("ip netns del " + name_); }
   bool ok() const { return ok_; }
   std::string const& name() const { return name_; }
   bool ip(std::string const& args) const { return sh("ip -n " + name_ + " " + args) == 0; }

 private:
   std::string name_;
   bool ok_ = false;
};

// An ldp-agent process in a namespace.
class AgentProc {
 public:
   AgentProc(std::string ns, std::string dir, std::string name)
      : ns_(std::move(ns)), dir_(std::move(dir)), name_(std::move(name)) {}
   ~AgentProc() { kill(SIGKILL); }
   std::string sock() const { return dir_ + "/" + name_ + ".sock"; }
   std::string stateDir() const { return dir_ + "/" + name_ + ".state"; }
   std::string logPath() const { return dir_ + "/" + name_ + ".log"; }
   std::string configPath() const { return dir_ + "/" + name_ + ".conf"; }

   void configIs(std::string const& text) const { std::ofstream(configPath()) << text; }
   // More options of ldp-agent, for the next start.
   std::vector<std::string> extraArgs;
   bool start() {
      pid_ = fork();
      if (pid_ == 0) {
         int log = open(logPath().c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
         dup2(log, 1);
         dup2(log, 2);
         std::vector<std::string> a = {"ip",     "netns",      "exec", ns_,          agentBin(),
                                       "--config", configPath(), "--socket", sock(),
                                       "--state-dir", stateDir()};
         a.insert(a.end(), extraArgs.begin(), extraArgs.end());
         std::vector<char*> argv;
         for (auto& x : a) argv.push_back(x.data());
         argv.push_back(nullptr);
         execvp("ip", argv.data());
         _exit(127);
      }
      return waitFor([&] { return ctl({"ping"}).code == 0 || !alive(); }, 10.0) && alive();
   }
   bool alive() {
      if (pid_ <= 0) return false;
      int st;
      pid_t r = waitpid(pid_, &st, WNOHANG);
      if (r == pid_) {
         exitCode_ = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
         pid_ = -1;
         return false;
      }
      return true;
   }
   // Sends the signal and waits for the end; the exit code, or -1.
   int stop(int sig = SIGTERM, double seconds = 10.0) {
      if (!alive()) return exitCode_;
      ::kill(pid_, sig);
      waitFor([&] { return !alive(); }, seconds);
      return alive() ? -1 : exitCode_;
   }
   void kill(int sig) {
      if (alive()) {
         ::kill(pid_, sig);
         waitFor([&] { return !alive(); }, 5.0);
      }
   }
   RunResult ctl(std::vector<std::string> args, std::string const& input = "") const {
      args.insert(args.begin(), {ctlBin(), "--socket", sock()});
      return run(args, dir_, input);
   }
   Json show(std::vector<std::string> args) const {
      args.insert(args.begin(), "show");
      args.push_back("--json");
      return parseJson(ctl(args).out);
   }
   std::string log() const { return slurp(logPath()); }

 private:
   std::string ns_, dir_, name_;
   pid_t pid_ = -1;
   int exitCode_ = -1;
};

// A scratch directory, removed at the end.
class TempDir {
 public:
   TempDir() {
      char t[] = "/tmp/ldp-host-test.XXXXXX";
      path_ = mkdtemp(t) ? t : "/tmp";
   }
   ~TempDir() {
      if (path_ != "/tmp" && !getenv("LDP_TEST_KEEP")) sh("rm -rf " + path_);
   }
   std::string const& path() const { return path_; }

 private:
   std::string path_;
};

// Why these tests can't run here, or empty when they can.
inline std::string realHostUnavailable() {
   if (geteuid() != 0) return "needs root for network namespaces";
   if (sh("ip -V") != 0) return "needs iproute2 (ip)";
   if (access(agentBin().c_str(), X_OK) != 0) return "needs " + agentBin() + " built";
   if (access(ctlBin().c_str(), X_OK) != 0) return "needs " + ctlBin() + " built";
   return "";
}

// Three namespaces in a line, loopbacks 1.1.1.1 - 2.2.2.2 - 3.3.3.3, over
// 10.0.12.0/24 (e12, e21) and 10.0.23.0/24 (e23, e32), each with routes to
// the others' loopbacks.
inline bool lsrLine(Netns& n1, Netns& n2, Netns& n3) {
   return n1.ip("link add e12 type veth peer name e21 netns " + n2.name()) &&
          n2.ip("link add e23 type veth peer name e32 netns " + n3.name()) &&
          n1.ip("addr add 1.1.1.1/32 dev lo") && n2.ip("addr add 2.2.2.2/32 dev lo") &&
          n3.ip("addr add 3.3.3.3/32 dev lo") && n1.ip("addr add 10.0.12.1/24 dev e12") &&
          n2.ip("addr add 10.0.12.2/24 dev e21") && n2.ip("addr add 10.0.23.2/24 dev e23") &&
          n3.ip("addr add 10.0.23.3/24 dev e32") && n1.ip("link set e12 up") &&
          n2.ip("link set e21 up") && n2.ip("link set e23 up") && n3.ip("link set e32 up") &&
          n1.ip("route add 2.2.2.2/32 via 10.0.12.2") &&
          n1.ip("route add 3.3.3.3/32 via 10.0.12.2") &&
          n2.ip("route add 1.1.1.1/32 via 10.0.12.1") &&
          n2.ip("route add 3.3.3.3/32 via 10.0.23.3") &&
          n3.ip("route add 1.1.1.1/32 via 10.0.23.2") &&
          n3.ip("route add 2.2.2.2/32 via 10.0.23.2");
}

// tshark capturing LDP's TCP on one interface of a namespace into a file.
class Capture {
 public:
   Capture(std::string const& ns, std::string const& intf, std::string file)
      : file_(std::move(file)) {
      pid_ = fork();
      if (pid_ == 0) {
         int null = open("/dev/null", O_WRONLY);
         dup2(null, 1);
         dup2(null, 2);
         execlp("ip", "ip", "netns", "exec", ns.c_str(), "tshark", "-i", intf.c_str(), "-f",
                "tcp port 646", "-w", file_.c_str(), static_cast<char*>(nullptr));
         _exit(127);
      }
      // tshark makes the file once it captures.
      ok_ = pid_ > 0 && waitFor([&] { return access(file_.c_str(), R_OK) == 0; }, 15.0);
   }
   ~Capture() { stop(); }
   bool ok() const { return ok_; }
   void stop() {
      if (pid_ <= 0) return;
      ::kill(pid_, SIGINT);
      int st;
      waitpid(pid_, &st, 0);
      pid_ = -1;
   }
   // Fields of the LDP messages that match the filter, one line per packet.
   std::string fields(std::string const& filter, std::vector<std::string> const& names,
                      std::string const& dir) const {
      std::vector<std::string> argv{"tshark", "-r", file_, "-Y", filter, "-T", "fields"};
      for (auto const& n : names) {
         argv.push_back("-e");
         argv.push_back(n);
      }
      return run(argv, dir).out;
   }

 private:
   std::string file_;
   pid_t pid_ = -1;
   bool ok_ = false;
};

}  // namespace HostTest

#include "runtime/vek/Trace.h"

#include <algorithm>
#include <charconv>
#include <map>

#include "runtime/vek/Activity.h"

namespace Vek {

int traceDepth = 0;

namespace {
struct Registry {
   std::vector<TraceHandle*> handles;
   std::map<std::string, int> levels;  // levels set before a module existed
   int defaultLevel = -1;
   std::FILE* file = nullptr;
   TraceRing ring;
   std::string prefix;
};
Registry& registry() {
   static Registry r;
   return r;
}
}  // namespace

TraceHandle::TraceHandle(char const* module, int level) : module_(module), level_(level) {
   Registry& r = registry();
   auto it = r.levels.find(module);
   if (it != r.levels.end()) level_ = it->second;
   else if (r.defaultLevel >= 0) level_ = r.defaultLevel;
   r.handles.push_back(this);
}

TraceHandle::~TraceHandle() {
   auto& h = registry().handles;
   h.erase(std::remove(h.begin(), h.end(), this), h.end());
}

namespace {
void appendDecimal(std::string& s, U64 v) {
   char buf[20];
   auto r = std::to_chars(buf, buf + sizeof buf, v);
   s.append(buf, r.ptr);
}

// The time as "%.6f" would print it, without printf: every line has one.
void appendSeconds(std::string& s, double t) {
   if (!(t >= 0.0 && t < 1e12)) {
      char buf[64];
      int n = std::snprintf(buf, sizeof buf, "%.6f", t);
      s.append(buf, std::size_t(std::max(0, n)));
      return;
   }
   U64 us = U64(t * 1e6 + 0.5);
   appendDecimal(s, us / 1000000);
   char frac[7];
   U64 f = us % 1000000;
   for (int i = 6; i >= 1; --i, f /= 10) frac[i] = char('0' + f % 10);
   frac[0] = '.';
   s.append(frac, 7);
}
}  // namespace

void TraceHandle::writeLine(int level, U32 const* instId, std::string const& text) const {
   Registry& r = registry();
   std::size_t indent = static_cast<std::size_t>(std::max(0, traceDepth)) * 2;
   // Written straight into the ring's slot; without a ring, into a scratch
   // line for the file.
   static std::string scratch;
   std::string* slot = r.ring.next();
   if (!slot) {
      if (!r.file) return;
      scratch.clear();
      slot = &scratch;
   }
   std::string& line = *slot;
   line.reserve(r.prefix.size() + 40 + indent + text.size());
   line += r.prefix;
   appendSeconds(line, activityManager()->now());
   line += ' ';
   line += module_;
   line += ' ';
   if (level < 0) {
      line += '-';
      appendDecimal(line, U64(-level));
   } else {
      appendDecimal(line, U64(level));
   }
   line += ' ';
   line.append(indent, ' ');
   if (instId) {
      line += '[';
      appendDecimal(line, *instId);
      line += "] ";
   }
   line += text;
   if (r.file) {
      std::fputs(line.c_str(), r.file);
      std::fputc('\n', r.file);
   }
}

void TraceHandle::write(int level, U32 instId, std::string const& text) const {
   writeLine(level, &instId, text);
}

void TraceHandle::write(int level, std::string const& text) const {
   writeLine(level, nullptr, text);
}

bool traceLevelIs(std::string const& module, int level) {
   Registry& r = registry();
   if (module == "*" || module == "all") {
      r.defaultLevel = level;
      for (TraceHandle* h : r.handles) h->levelIs(level);
      return true;
   }
   bool found = false;
   for (TraceHandle* h : r.handles) {
      if (module == h->module()) {
         h->levelIs(level);
         found = true;
      }
   }
   r.levels[module] = level;
   return found;
}

std::vector<TraceHandle*> const& traceHandles() { return registry().handles; }

void traceFileIs(std::FILE* f) { registry().file = f; }

void tracePrefixIs(std::string const& p) { registry().prefix = p; }

TraceRing& traceRing() { return registry().ring; }

void TraceRing::add(std::string const& line) {
   if (std::string* s = next()) *s = line;
}

std::string* TraceRing::next() {
   if (capacity_ == 0) return nullptr;
   if (slots_.size() < capacity_ && size_ == slots_.size()) {
      // Still growing: the lines stand in order from slot 0.
      slots_.emplace_back();
      ++size_;
      return &slots_.back();
   }
   std::string* s;
   if (size_ < slots_.size()) {
      s = &slots_[(head_ + size_) % slots_.size()];
      ++size_;
   } else {
      s = &slots_[head_];
      head_ = (head_ + 1) % slots_.size();
   }
   s->clear();
   return s;
}

std::vector<std::string> TraceRing::lines() const {
   std::vector<std::string> out;
   out.reserve(size_);
   forEach([&](std::string const& l) { out.push_back(l); });
   return out;
}

bool TraceRing::contains(std::string const& text) const {
   bool found = false;
   forEach([&](std::string const& l) { found = found || l.find(text) != std::string::npos; });
   return found;
}

std::size_t TraceRing::count(std::string const& text) const {
   std::size_t n = 0;
   forEach([&](std::string const& l) { n += l.find(text) != std::string::npos; });
   return n;
}

}  // namespace Vek

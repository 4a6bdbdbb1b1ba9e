#include "runtime/vek/Trace.h"

#include <algorithm>
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

void TraceHandle::write(int level, U32 instId, std::string const& text) const {
   write(level, "[" + std::to_string(instId) + "] " + text);
}

void TraceHandle::write(int level, std::string const& text) const {
   Registry& r = registry();
   char head[64];
   std::snprintf(head, sizeof head, "%.6f %s %d ", activityManager()->now(), module_, level);
   std::string line = r.prefix + head;
   line.append(static_cast<std::size_t>(std::max(0, traceDepth)) * 2, ' ');
   line += text;
   if (r.file) {
      std::fputs(line.c_str(), r.file);
      std::fputc('\n', r.file);
   }
   r.ring.add(std::move(line));
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

void TraceRing::add(std::string line) {
   if (capacity_ == 0) return;
   if (lines_.size() >= capacity_) lines_.pop_front();
   lines_.push_back(std::move(line));
}

bool TraceRing::contains(std::string const& text) const {
   for (auto const& l : lines_)
      if (l.find(text) != std::string::npos) return true;
   return false;
}

std::size_t TraceRing::count(std::string const& text) const {
   std::size_t n = 0;
   for (auto const& l : lines_)
      if (l.find(text) != std::string::npos) ++n;
   return n;
}

}  // namespace Vek

#include "runtime/vek/EventLog.h"

#include <cstdio>
#include <map>

#include "runtime/vek/Activity.h"

namespace Vek {

namespace {

struct Registry {
   EventLogSink sink = eventLogToStderr;
   // Per message name: the times of the records of the current window.
   std::map<std::string, std::deque<Seconds>> windows;
};

Registry& registry() {
   static Registry r;
   return r;
}

char const* severityName(EventLogSeverity s) {
   switch (s) {
   case EventLogSeverity::error: return "ERR";
   case EventLogSeverity::warning: return "WARNING";
   case EventLogSeverity::notice: return "NOTICE";
   case EventLogSeverity::info: return "INFO";
   }
   return "INFO";
}

}  // namespace

std::string eventLogFormat(char const* format, std::vector<std::string> const& args) {
   std::string out;
   std::size_t next = 0;
   for (char const* p = format; *p; ++p) {
      if (*p != '%' || !p[1]) {
         out += *p;
         continue;
      }
      ++p;
      if (*p == 's' || *p == 'a') {
         if (next < args.size()) out += args[next];
         ++next;
      } else if (*p == '%') {
         out += '%';
      } else {
         out += '%';
         out += *p;
      }
   }
   return out;
}

bool eventLog(EventLogMsg const& msg, std::vector<std::string> const& args) {
   Registry& reg = registry();
   Seconds now = activityManager() ? activityManager()->now() : 0.0;
   if (msg.burst) {
      auto& w = reg.windows[msg.name];
      while (!w.empty() && now - w.front() >= msg.minInterval) w.pop_front();
      if (w.size() >= msg.burst) return false;
      w.push_back(now);
   }
   EventLogRecord r;
   r.time = activityManager() ? activityManager()->nowUtc() : 0.0;
   r.name = msg.name;
   r.severity = msg.severity;
   r.text = eventLogFormat(msg.format, args);
   if (reg.sink) reg.sink(r);
   eventLogRing().add(std::move(r));
   return true;
}

void eventLogSinkIs(EventLogSink sink) { registry().sink = std::move(sink); }

void eventLogToStderr(EventLogRecord const& r) {
   std::fprintf(stderr, "%%%s-%s: %s\n", r.name.c_str(), severityName(r.severity),
                r.text.c_str());
}

void EventLogRing::add(EventLogRecord r) {
   records_.push_back(std::move(r));
   while (records_.size() > capacity_) records_.pop_front();
}

std::size_t EventLogRing::count(std::string const& name, std::string const& text) const {
   std::size_t n = 0;
   for (auto const& r : records_)
      if (r.name == name && r.text.find(text) != std::string::npos) ++n;
   return n;
}

EventLogRing& eventLogRing() {
   static EventLogRing ring;
   return ring;
}

}  // namespace Vek

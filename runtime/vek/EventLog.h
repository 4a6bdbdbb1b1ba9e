#pragma once
// The event log: operator messages with a name, a format and a description,
// apart from the trace. Each message is formatted once and handed to the sink
// (standard error by default; a host may send it to syslog) and kept in a ring
// of the latest records that tests and dumps read.
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "runtime/vek/Types.h"

namespace Vek {

enum class EventLogSeverity : U8 { error, warning, notice, info };

// The definition of one message. The format takes %s for a text and %a for
// an address, both filled in order by the arguments of eventLog().
struct EventLogMsg {
   char const* name;
   EventLogSeverity severity;
   char const* format;
   char const* description;
   // At most this many records of the message within minInterval seconds;
   // 0 means no limit.
   U32 burst = 0;
   Seconds minInterval = 0.0;
};

struct EventLogRecord {
   Seconds time = 0.0;
   std::string name;
   EventLogSeverity severity = EventLogSeverity::info;
   std::string text;
};

// Substitutes the arguments into the format: each %s or %a takes the next
// argument, %% is a percent sign; missing arguments stay empty.
std::string eventLogFormat(char const* format, std::vector<std::string> const& args);

// Writes one record; returns false when the message's rate limit held it back.
bool eventLog(EventLogMsg const& msg, std::vector<std::string> const& args);

using EventLogSink = std::function<void(EventLogRecord const&)>;
// Replaces the sink; null writes nothing beyond the ring.
void eventLogSinkIs(EventLogSink sink);
// Writes records to standard error, the default sink.
void eventLogToStderr(EventLogRecord const& r);

class EventLogRing {
 public:
   explicit EventLogRing(std::size_t capacity = 4096) : capacity_(capacity) {}
   void add(EventLogRecord r);
   std::deque<EventLogRecord> const& records() const { return records_; }
   // Records of one message name whose text contains the given text.
   std::size_t count(std::string const& name, std::string const& text = "") const;
   void clear() { records_.clear(); }

 private:
   std::size_t capacity_;
   std::deque<EventLogRecord> records_;
};
EventLogRing& eventLogRing();

}  // namespace Vek

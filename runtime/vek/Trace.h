#pragma once
// Tracing. One TraceHandle per module with a level from 0 (off) to 9; a trace
// costs one comparison unless its level is enabled, because the macros test
// the level before any text is built. Lines go to two back ends: a text trace
// (a file or stream) and an in-memory ring of the latest lines.
#include <cstdio>
#include <deque>
#include <sstream>
#include <string>
#include <vector>

#include "runtime/vek/Types.h"

namespace Vek {

class TraceHandle {
 public:
   explicit TraceHandle(char const* module, int level = 0);
   ~TraceHandle();
   TraceHandle(TraceHandle const&) = delete;
   TraceHandle& operator=(TraceHandle const&) = delete;

   char const* module() const { return module_; }
   bool levelEnabled(int level) const { return level <= level_; }
   int level() const { return level_; }
   void levelIs(int level) { level_ = level; }
   // Writes one line: "[instId] " and the call depth's indentation before text.
   void write(int level, U32 instId, std::string const& text) const;
   void write(int level, std::string const& text) const;

 private:
   void writeLine(int level, U32 const* instId, std::string const& text) const;
   char const* module_;
   int level_;
};

// Sets the level of one module, or of all with "*"; returns false for an
// unknown module. A module made later takes the level given to "*".
bool traceLevelIs(std::string const& module, int level);
std::vector<TraceHandle*> const& traceHandles();

// The text back end: a file, standard error, or nothing (nullptr).
void traceFileIs(std::FILE* f);

// The ring back end: the latest lines in memory, for tests and dumps. Its
// slots keep their buffers, so that a line written over an old one costs no
// allocation once the ring has gone round.
class TraceRing {
 public:
   explicit TraceRing(std::size_t capacity = 4096) : capacity_(capacity) {}
   void add(std::string const& line);
   // The slot of the next line, emptied; null when the ring keeps nothing.
   std::string* next();
   // The lines, oldest first.
   std::vector<std::string> lines() const;
   std::size_t size() const { return size_; }
   bool contains(std::string const& text) const;
   std::size_t count(std::string const& text) const;
   void clear() {
      slots_.clear();
      head_ = size_ = 0;
   }
   void capacityIs(std::size_t c) {
      auto keep = lines();
      capacity_ = c;
      clear();
      std::size_t from = keep.size() > c ? keep.size() - c : 0;
      for (std::size_t i = from; i < keep.size(); ++i) add(keep[i]);
   }

 private:
   template <class F>
   void forEach(F f) const {
      for (std::size_t i = 0; i < size_; ++i) f(slots_[(head_ + i) % slots_.size()]);
   }
   std::size_t capacity_;
   std::vector<std::string> slots_;
   std::size_t head_ = 0;  // the oldest line
   std::size_t size_ = 0;
};
TraceRing& traceRing();

// The depth of handler calls, which indents the text.
extern int traceDepth;

// Prefix for every line, so that several agents in one process can be told
// apart in one trace (set by the runner of each agent around its work).
void tracePrefixIs(std::string const& p);

class TraceDepthScope {
 public:
   TraceDepthScope() { ++traceDepth; }
   ~TraceDepthScope() { --traceDepth; }
};

}  // namespace Vek

#define VEK_TRACE(handle, level, expr)                                     \
   do {                                                                    \
      if ((handle).levelEnabled(level)) [[unlikely]] {                     \
         std::ostringstream vek_trace_os_;                                 \
         vek_trace_os_ << expr;                                            \
         (handle).write((level), vek_trace_os_.str());                     \
      }                                                                    \
   } while (0)

#define VEK_TRACE_INST(handle, level, inst, expr)                          \
   do {                                                                    \
      if ((handle).levelEnabled(level)) [[unlikely]] {                     \
         std::ostringstream vek_trace_os_;                                 \
         vek_trace_os_ << expr;                                            \
         (handle).write((level), (inst), vek_trace_os_.str());             \
      }                                                                    \
   } while (0)

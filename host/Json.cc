#include "host/Json.h"

#include <cmath>
#include <cstdio>

namespace Host {

void JsonWriter::separate() {
   if (afterKey_) {
      afterKey_ = false;
      return;
   }
   if (!first_.empty()) {
      if (!first_.back()) out_ += ',';
      first_.back() = false;
   }
}

JsonWriter& JsonWriter::beginObject() {
   separate();
   out_ += '{';
   first_.push_back(true);
   return *this;
}

JsonWriter& JsonWriter::endObject() {
   out_ += '}';
   first_.pop_back();
   return *this;
}

JsonWriter& JsonWriter::beginArray() {
   separate();
   out_ += '[';
   first_.push_back(true);
   return *this;
}

JsonWriter& JsonWriter::endArray() {
   out_ += ']';
   first_.pop_back();
   return *this;
}

JsonWriter& JsonWriter::key(std::string const& k) {
   separate();
   out_ += quote(k);
   out_ += ':';
   afterKey_ = true;
   return *this;
}

JsonWriter& JsonWriter::value(std::string const& s) {
   separate();
   out_ += quote(s);
   return *this;
}

JsonWriter& JsonWriter::value(bool b) {
   separate();
   out_ += b ? "true" : "false";
   return *this;
}

JsonWriter& JsonWriter::value(double d) {
   separate();
   // JSON has no infinity: an endless time is null.
   if (!std::isfinite(d)) {
      out_ += "null";
      return *this;
   }
   char buf[32];
   std::snprintf(buf, sizeof(buf), "%.3f", d);
   out_ += buf;
   return *this;
}

JsonWriter& JsonWriter::value(U64 n) {
   separate();
   out_ += std::to_string(n);
   return *this;
}

JsonWriter& JsonWriter::value(int n) {
   separate();
   out_ += std::to_string(n);
   return *this;
}

JsonWriter& JsonWriter::null() {
   separate();
   out_ += "null";
   return *this;
}

std::string JsonWriter::quote(std::string const& s) {
   std::string o = "\"";
   for (unsigned char c : s) {
      switch (c) {
         case '"':
            o += "\\\"";
            break;
         case '\\':
            o += "\\\\";
            break;
         case '\n':
            o += "\\n";
            break;
         case '\r':
            o += "\\r";
            break;
         case '\t':
            o += "\\t";
            break;
         default:
            if (c < 0x20) {
               char buf[8];
               std::snprintf(buf, sizeof(buf), "\\u%04x", c);
               o += buf;
            } else {
               o += char(c);
            }
      }
   }
   return o + "\"";
}

}  // namespace Host

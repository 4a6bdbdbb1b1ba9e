#pragma once
// A small JSON writer for the answers of the control socket: objects, arrays,
// strings with escapes, numbers and booleans, written in order.
#include <string>
#include <vector>

#include "runtime/vek/Types.h"

namespace Host {

class JsonWriter {
 public:
   JsonWriter& beginObject();
   JsonWriter& endObject();
   JsonWriter& beginArray();
   JsonWriter& endArray();
   // The name of the next member of the open object.
   JsonWriter& key(std::string const& k);
   JsonWriter& value(std::string const& s);
   JsonWriter& value(char const* s) { return value(std::string(s)); }
   JsonWriter& value(bool b);
   JsonWriter& value(double d);
   JsonWriter& value(U64 n);
   JsonWriter& value(U32 n) { return value(U64(n)); }
   JsonWriter& value(U16 n) { return value(U64(n)); }
   JsonWriter& value(int n);
   JsonWriter& null();
   template <class T>
   JsonWriter& member(std::string const& k, T const& v) {
      key(k);
      return value(v);
   }
   std::string const& str() const { return out_; }

   static std::string quote(std::string const& s);

 private:
   void separate();
   std::string out_;
   std::vector<bool> first_;
   bool afterKey_ = false;
};

}  // namespace Host

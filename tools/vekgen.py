#!/usr/bin/env python3
"""Turns entity declarations (*.vek) into C++ headers.

An entity's attributes are declared once; this generator writes the class
with its accessors and mutators, its NotifieeConst with one onX per attribute,
and two reactor templates that forward notifications to state machine
handlers. The format, one declaration a line, '#' starts a comment:

    include "entities/Identifiers.h"
    import "runtime/nolu/Pam.vek"            # entities usable as bases here
    namespace Ldp
    enum LdpRunningState : U8
       running_ = 1
       stopping_ = 2
    entity LdpSessionStatus [: BaseEntity]
       key sessionId : LdpSessionId          # constructor attribute and member key
       ctor peerAddr : Nolu::IpGenAddr       # further constructor attribute
       scalar sessionState : SessionState = stateNonExistent_
       counter fatalRetryCount : U64
       coll peerIntfIp : Nolu::IpGenAddr -> bool
       ordered queue : Mpls::FwdEqvClass -> Vek::Seconds
       children sessionStatus : LdpSessionId -> LdpSessionStatus
       orderedchildren fec : Mpls::FwdEqvClass -> LdpFecConfig
       child commonConfig : LdpSessionCommonConfig
       small via : Via -> bool                # a sorted array: for a handful of members
       entries fec : Mpls::FwdEqvClass -> LdpFecConfig   # inline entries, see below
       method void addSessionStateLogEntry(LdpSessionStateLogEntry const& e)
       code static U32 answer() { return 42; }
    decl Vek::Ptr<LdpSessionStatus> makeStatus();   # verbatim, at namespace level

For an attribute x: x() to read; xIs to write (silent when unchanged); xInc and
xDec on counters; x(key), xIs(key, ...), xDel(key), xDelAll(), xSize(), xIter()
and xIterFrom(key) on collections; notification onX() or onX(key).

Table entries: "entity Name inline" declares an entity that lives inside the
slot of its table ("entries" attribute of the owner) rather than as an object
of its own: no reference count, no notifiee list, no name. Its collections are
sorted small maps, and attributes marked "extra" (for example
"extra scalar hopCount : U8") live in a part made on the first write of a
value other than the default, so that a table costs its common fields only.
The owner hands out a handle, XRef, with the entry's accessors and mutators;
a change of an entry's attribute y is notified to the owner's notifiees as
onXY(key) or onXY(key, yKey), and a machine's reactor on the owner forwards it
to handleXY. A handle keeps the table from moving its entries while it lives.
"""
import os
import re
import sys


KEYED = ('coll', 'ordered', 'small', 'bits', 'children', 'orderedchildren', 'entries')
CONTAINER = {'coll': 'Vek::HashMap', 'ordered': 'Vek::OrderedMap', 'small': 'Vek::SmallMap',
             'bits': 'Vek::BitSet'}


class Attr:
    def __init__(self, kind, name, typ=None, key=None, default=None, extra=False):
        self.kind, self.name, self.typ, self.key, self.default = kind, name, typ, key, default
        self.extra = extra

    @property
    def cap(self):
        return self.name[0].upper() + self.name[1:]

    @property
    def keyed(self):
        return self.kind in KEYED

    @property
    def valued(self):
        return self.kind in ('coll', 'ordered', 'small', 'bits')

    def container(self):
        if self.kind == 'bits':
            return f'Vek::BitSet<{self.key}>'
        return f'{CONTAINER[self.kind]}<{self.key}, {self.typ}>'


class Entity:
    def __init__(self, ns, name, base, inline=False):
        self.ns, self.name, self.base = ns, name, base
        self.inline = inline
        self.attrs, self.methods, self.code = [], [], []

    @property
    def full(self):
        return f'{self.ns}::{self.name}' if self.ns else self.name

    def ctor_attrs(self):
        return [a for a in self.attrs if a.kind in ('key', 'ctor')]

    def key_attr(self):
        for a in self.attrs:
            if a.kind == 'key':
                return a
        return None


class Decl:
    """A verbatim declaration at namespace level, such as a factory function."""
    def __init__(self, ns, text):
        self.ns, self.text = ns, text


class Enum:
    def __init__(self, ns, name, under):
        self.ns, self.name, self.under, self.values = ns, name, under, []


def fail(path, lineno, msg):
    sys.exit(f'{path}:{lineno}: {msg}')


def parse(path, imports=None):
    items, includes = [], []
    imports = [] if imports is None else imports
    ns = ''
    cur = None
    with open(path) as f:
        lines = f.readlines()
    for lineno, raw in enumerate(lines, 1):
        line = raw.split('#', 1)[0].rstrip() if not raw.lstrip().startswith('code ') and \
            not raw.lstrip().startswith('method ') else raw.rstrip()
        if not line.strip():
            continue
        indented = line[0] in ' \t'
        words = line.strip()
        if not indented:
            cur = None
            if words.startswith('include '):
                includes.append(words.split(None, 1)[1])
            elif words.startswith('import '):
                imports.append(words.split(None, 1)[1].strip('"'))
            elif words.startswith('namespace'):
                parts = words.split()
                ns = parts[1] if len(parts) > 1 else ''
            elif words.startswith('entity '):
                m = re.match(r'entity\s+(\w+)\s*(?::\s*([\w:]+))?\s*(inline)?$', words)
                if not m:
                    fail(path, lineno, 'bad entity line')
                cur = Entity(ns, m.group(1), m.group(2), bool(m.group(3)))
                if cur.inline and cur.base:
                    fail(path, lineno, 'an inline entity has no base')
                items.append(cur)
            elif words.startswith('decl '):
                items.append(Decl(ns, words[5:]))
            elif words.startswith('enum '):
                m = re.match(r'enum\s+(\w+)\s*:\s*(\w+)$', words)
                if not m:
                    fail(path, lineno, 'bad enum line')
                cur = Enum(ns, m.group(1), m.group(2))
                items.append(cur)
            else:
                fail(path, lineno, f'unknown declaration: {words}')
            continue
        if cur is None:
            fail(path, lineno, 'indented line outside a declaration')
        if isinstance(cur, Enum):
            m = re.match(r'(\w+)\s*=\s*(\S+)$', words)
            if not m:
                fail(path, lineno, 'bad enumerator')
            cur.values.append((m.group(1), m.group(2)))
            continue
        extra = False
        if words.startswith('extra '):
            extra = True
            words = words[len('extra '):].strip()
        kind, _, rest = words.partition(' ')
        rest = rest.strip()
        if extra and (not cur.inline or kind not in ('scalar', 'counter', 'coll', 'small', 'bits')):
            fail(path, lineno, 'only scalars, counters and collections of inline entities are extra')
        if kind == 'method':
            cur.methods.append(rest)
            continue
        if kind == 'code':
            cur.code.append(rest)
            continue
        m = re.match(r'(\w+)\s*:\s*(.+)$', rest)
        if not m:
            fail(path, lineno, f'bad attribute: {words}')
        name, typ = m.group(1), m.group(2).strip()
        default = None
        if kind in ('scalar', 'counter') and '=' in typ:
            typ, default = [s.strip() for s in typ.split('=', 1)]
        key = None
        if kind in KEYED:
            if '->' not in typ:
                fail(path, lineno, f'{kind} needs KEY -> VALUE')
            key, typ = [s.strip() for s in typ.split('->', 1)]
        elif kind not in ('key', 'ctor', 'scalar', 'counter', 'child'):
            fail(path, lineno, f'unknown attribute kind {kind}')
        if cur.inline:
            if kind in ('ctor', 'child', 'children', 'orderedchildren', 'entries'):
                fail(path, lineno, f'an inline entity has no {kind} attribute')
            # Collections of an entry are small sorted maps.
            if kind in ('coll', 'ordered'):
                kind = 'small'
        a = Attr(kind, name, typ, key, default, extra)
        a.ns = ns
        cur.attrs.append(a)
    return items, includes


def gen_enum(e, out):
    w = out.append
    w(f'enum {e.name} : {e.under} {{')
    for n, v in e.values:
        w(f'   {n} = {v},')
    w('};')
    w(f'inline char const* {e.name[0].lower() + e.name[1:]}Str({e.name} v) {{')
    w('   switch (v) {')
    for n, _ in e.values:
        w(f'      case {n}: return "{n}";')
    w('   }')
    w('   return "unknown";')
    w('}')
    w(f'inline std::ostream& operator<<(std::ostream& os, {e.name} v) {{')
    w(f'   return os << {e.name[0].lower() + e.name[1:]}Str(v);')
    w('}')
    w('')


def entry_type(a, entities):
    t = entities.get(f'{a.ns}::{a.typ}') or entities.get(a.typ)
    if not t or not t.inline:
        sys.exit(f'entries {a.name}: {a.typ} must be an inline entity declared before')
    return t


def entry_attrs(a, entities):
    return [x for x in entry_type(a, entities).attrs if x.kind != 'key']


def storage(a, mut=False):
    """The expression of an inline entity's attribute in e."""
    if not a.extra:
        return f'e.{a.name}_'
    return f'e.extraMut().{a.name}_' if mut else f'e.extra_->{a.name}_'


def gen_inline(e, entities, out):
    w = out.append
    key = e.key_attr()
    if not key:
        sys.exit(f'inline entity {e.name} needs a key')
    attrs = [a for a in e.attrs if a.kind != 'key']
    extra = [a for a in attrs if a.extra]
    w(f'class {e.name} {{')
    w(' public:')
    w(f'   using Key = {key.typ};')
    w('   static constexpr bool kHasKey = true;')
    w(f'   explicit {e.name}(Key const& k) : {key.name}_(k) {{}}')
    w(f'   {e.name}({e.name}&&) = default;')
    w(f'   {e.name}& operator=({e.name}&&) = default;')
    w(f'   Key const& key() const {{ return {key.name}_; }}')
    w(f'   Key const& {key.name}() const {{ return {key.name}_; }}')
    for a in attrs:
        n, c, t, k = a.name, a.cap, a.typ, a.key
        if a.kind in ('scalar', 'counter'):
            if a.extra:
                d = a.default if a.default else '{}'
                w(f'   {t} const& {n}() const {{')
                w(f'      static {t} const d{{{d}}};' if a.default else f'      static {t} const d{{}};')
                w(f'      return extra_ ? extra_->{n}_ : d;')
                w('   }')
            else:
                w(f'   {t} const& {n}() const {{ return {n}_; }}')
        else:
            w(f'   using {c}Coll = {a.container()};')
            if a.extra:
                w(f'   {c}Coll const& {n}() const {{')
                w(f'      static {c}Coll const none{{}};')
                w(f'      return extra_ ? extra_->{n}_ : none;')
                w('   }')
            else:
                w(f'   {c}Coll const& {n}() const {{ return {n}_; }}')
            w(f'   {t} {n}({k} const& k) const {{')
            w(f'      auto const* p = {n}().find(k);')
            w(f'      return p ? *p : {t}{{}};')
            w('   }')
            w(f'   {t} const* {n}Find({k} const& k) const {{ return {n}().find(k); }}')
            w(f'   bool {n}Has({k} const& k) const {{ return {n}().contains(k); }}')
            w(f'   std::size_t {n}Size() const {{ return {n}().size(); }}')
            w(f'   typename {c}Coll::Iterator {n}Iter() const {{ return {n}().begin(); }}')
            w(f'   typename {c}Coll::Iterator {n}IterFrom({k} const& k) const {{ return {n}().iterFrom(k); }}')
    for line in e.code:
        w(f'   {line}')
    w('')
    w('   // The fields, written through the handle of the table that holds the entry.')
    w(f'   {key.typ} {key.name}_;')
    for a in attrs:
        if a.extra:
            continue
        if a.kind in ('scalar', 'counter'):
            w(f'   {a.typ} {a.name}_{" = " + a.default if a.default else "{}"};')
        else:
            w(f'   {a.cap}Coll {a.name}_;')
    if extra:
        w('   // The fields that most entries never set, made on the first write.')
        w('   struct Extra {')
        for a in extra:
            if a.kind in ('scalar', 'counter'):
                w(f'      {a.typ} {a.name}_{" = " + a.default if a.default else "{}"};')
            else:
                w(f'      {a.cap}Coll {a.name}_;')
        w('   };')
        w('   std::unique_ptr<Extra> extra_;')
        w('   Extra& extraMut() {')
        w('      if (!extra_) extra_ = std::make_unique<Extra>();')
        w('      return *extra_;')
        w('   }')
    w('};')
    w('')


def gen_entries_accessors(owner, a, entities, w):
    """The accessors of an entries attribute, and its handle class."""
    et = entry_type(a, entities)
    n, c, t, k = a.name, a.cap, a.typ, a.key
    C = owner.name
    w(f'   using {c}Coll = Vek::HashMap<{k}, {t}>;')
    w(f'   // A handle on one entry of {n}: its accessors and mutators.')
    w(f'   class {c}Ref {{')
    w('    public:')
    w(f'      {c}Ref() = default;')
    w(f'      {c}Ref({C}* o, U32 slot) : o_(o), slot_(slot) {{ o_->{n}_.pin(); }}')
    w(f'      {c}Ref({c}Ref const& r) : o_(r.o_), slot_(r.slot_) {{')
    w(f'         if (o_) o_->{n}_.pin();')
    w('      }')
    w(f'      {c}Ref({c}Ref&& r) noexcept : o_(r.o_), slot_(r.slot_) {{ r.o_ = nullptr; }}')
    w(f'      {c}Ref& operator=({c}Ref r) noexcept {{')
    w('         std::swap(o_, r.o_);')
    w('         std::swap(slot_, r.slot_);')
    w('         return *this;')
    w('      }')
    w(f'      ~{c}Ref() {{')
    w(f'         if (o_) o_->{n}_.unpin();')
    w('      }')
    w(f'      explicit operator bool() const {{ return o_ && o_->{n}_.slotValid(slot_); }}')
    w(f'      {c}Ref* operator->() {{ return this; }}')
    w(f'      {c}Ref const* operator->() const {{ return this; }}')
    w(f'      {t} const& get() const {{ return o_->{n}_.atSlot(slot_); }}')
    w(f'      {k} const& key() const {{ return get().key(); }}')
    for sa in et.attrs:
        sn, sc, st, sk = sa.name, sa.cap, sa.typ, sa.key
        if sa.kind == 'key':
            w(f'      {st} const& {sn}() const {{ return get().{sn}(); }}')
            continue
        if sa.kind in ('scalar', 'counter'):
            w(f'      {st} const& {sn}() const {{ return get().{sn}(); }}')
            w(f'      void {sn}Is({st} const& v) {{')
            w(f'         {t}& e = mut();')
            w(f'         if (e.{sn}() == v) return;')
            w(f'         {storage(sa, True)} = v;')
            w(f'         {k} k(e.key());')
            w(f'         o_->notify{c}{sc}(k);')
            w('      }')
            if sa.kind == 'counter':
                for op, sign in (('Inc', '+'), ('Dec', '-')):
                    w(f'      {st} {sn}{op}({st} d = 1) {{')
                    w(f'         if (d == 0) return get().{sn}();')
                    w(f'         {sn}Is({st}(get().{sn}() {sign} d));')
                    w(f'         return get().{sn}();')
                    w('      }')
            continue
        cc = f'{t}::{sc}Coll'
        w(f'      {cc} const& {sn}() const {{ return get().{sn}(); }}')
        w(f'      {st} {sn}({sk} const& sk) const {{ return get().{sn}(sk); }}')
        w(f'      {st} const* {sn}Find({sk} const& sk) const {{ return get().{sn}Find(sk); }}')
        w(f'      bool {sn}Has({sk} const& sk) const {{ return get().{sn}Has(sk); }}')
        w(f'      std::size_t {sn}Size() const {{ return get().{sn}Size(); }}')
        w(f'      {cc}::Iterator {sn}Iter() const {{ return get().{sn}Iter(); }}')
        w(f'      void {sn}Is({sk} const& key, {st} const& v) {{')
        w(f'         {t}& e = mut();')
        w(f'         auto [p, inserted] = {storage(sa, True)}.emplace(key, v);')
        w('         if (!inserted) {')
        w('            if (*p == v) return;')
        w('            *p = v;')
        w('         }')
        w(f'         {k} k(e.key());')
        w(f'         {sk} sk(key);')
        w(f'         o_->notify{c}{sc}(k, sk);')
        w('      }')
        w(f'      void {sn}Del({sk} const& key) {{')
        w(f'         {t}& e = mut();')
        if sa.extra:
            w('         if (!e.extra_) return;')
        w(f'         {sk} sk(key);')
        w(f'         if (!{storage(sa)}.erase(sk)) return;')
        w(f'         {k} k(e.key());')
        w(f'         o_->notify{c}{sc}(k, sk);')
        w('      }')
        w(f'      void {sn}DelAll() {{')
        w(f'         while (*this && !get().{sn}().empty()) {sn}Del({sk}(get().{sn}().begin().key()));')
        w('      }')
    w('')
    w('     private:')
    w(f'      {t}& mut() const {{ return o_->{n}_.atSlot(slot_); }}')
    w(f'      // The table outlives the handles into it.')
    w(f'      {C}* o_ = nullptr;')
    w('      U32 slot_ = 0;')
    w('   };')
    w(f'   {c}Ref {n}({k} const& k) {{')
    w(f'      U32 s = {n}_.slotOf(k);')
    w(f'      return {n}_.slotValid(s) ? {c}Ref(this, s) : {c}Ref();')
    w('   }')
    w(f'   {t} const* {n}({k} const& k) const {{ return {n}_.find(k); }}')
    w(f'   {t} const* {n}Find({k} const& k) const {{ return {n}_.find(k); }}')
    w(f'   bool {n}Has({k} const& k) const {{ return {n}_.contains(k); }}')
    w(f'   {c}Coll const& {n}() const {{ return {n}_; }}')
    w(f'   std::size_t {n}Size() const {{ return {n}_.size(); }}')
    w(f'   typename {c}Coll::Iterator {n}Iter() const {{ return {n}_.begin(); }}')
    w(f'   typename {c}Coll::Iterator {n}IterFrom({k} const& k) const {{ return {n}_.iterFrom(k); }}')
    w(f'   typename {c}Coll::Iterator {n}IterFrom(Vek::Bookmark<{k}> const& b) const {{ return {n}_.iterFrom(b); }}')
    w(f'   // The handle of the entry that a walk stands on.')
    w(f'   {c}Ref {n}Ref(typename {c}Coll::Iterator const& it) {{')
    w(f'      return it.valid() ? {c}Ref(this, it.slot()) : {c}Ref();')
    w('   }')
    w(f'   // The entry, made if absent; a new entry is notified.')
    w(f'   {c}Ref {n}Is({k} const& key) {{')
    w(f'      auto [s, inserted] = {n}_.emplaceSlot(key);')
    w(f'      {c}Ref r(this, s);')
    w('      if (inserted) {')
    w(f'         {k} k(key);')
    w(f'         notify{c}(k);')
    w('      }')
    w('      return r;')
    w('   }')
    w(f'   void {n}Del({k} const& key) {{')
    w(f'      {k} k(key);')
    w(f'      if ({n}_.erase(k)) notify{c}(k);')
    w('   }')
    w(f'   void {n}DelAll() {{')
    w(f'      while (!{n}_.empty()) {n}Del({k}({n}_.begin().key()));')
    w('   }')


def gen_entity(e, entities, out):
    w = out.append
    base = e.base or 'Vek::Entity'
    base_ent = entities.get(e.base) if e.base else None
    depth = 0
    b = base_ent
    while b:
        depth += 1
        b = entities.get(b.base) if b.base else None
    if e.base and not base_ent:
        sys.exit(f'entity {e.name}: base {e.base} must be declared in this file or an imported one')
    if base_ent and base_ent.ctor_attrs():
        sys.exit(f'entity {e.name}: a base entity may not have constructor attributes')
    ctor = e.ctor_attrs()
    key = e.key_attr()
    w(f'class {e.name} : public {base} {{')
    w(' public:')
    w(f'   static constexpr U8 kNotifieeDepth = {depth};')
    w(f'   static constexpr bool kHasKey = {"true" if key else "false"};')
    if key:
        w(f'   using Key = {key.typ};')
    w('   class NotifieeConst;')
    w('   template <class S> class Reactor;')
    w('   template <class S, class K> class MemberReactor;')
    w('')
    params = ', '.join(f'{a.typ} const& {a.name}' for a in ctor)
    inits = ', '.join(f'{a.name}_({a.name})' for a in ctor)
    w(f'   {"explicit " if len(ctor) == 1 else ""}{e.name}({params}){" : " + inits if inits else ""} {{}}')
    # Reinstantiation: the same key with other constructor values is a fault.
    others = [a for a in ctor if a.kind != 'key']
    rparams = ', '.join(f'{a.typ} const& {a.name}' for a in others)
    w(f'   void reinstantiate({rparams}) const {{')
    for a in others:
        w(f'      if (!({a.name}_ == {a.name})) Vek::reinstantiationError("{a.name}", {a.name});')
    w('   }')
    if key:
        w(f'   Key const& key() const {{ return {key.name}_; }}')
        w(f'   std::string entityName() const override {{ return Vek::toString({key.name}_); }}')
    for a in ctor:
        w(f'   {a.typ} const& {a.name}() const {{ return {a.name}_; }}')
    for a in e.attrs:
        n, c, t, k = a.name, a.cap, a.typ, a.key
        if a.kind == 'scalar':
            w(f'   {t} const& {n}() const {{ return {n}_; }}')
            w(f'   void {n}Is({t} const& v) {{')
            w(f'      if ({n}_ == v) return;')
            w(f'      {n}_ = v;')
            w(f'      notify{c}();')
            w('   }')
        elif a.kind == 'counter':
            w(f'   {t} {n}() const {{ return {n}_; }}')
            w(f'   void {n}Is({t} v) {{')
            w(f'      if ({n}_ == v) return;')
            w(f'      {n}_ = v;')
            w(f'      notify{c}();')
            w('   }')
            w(f'   {t} {n}Inc({t} d = 1) {{')
            w(f'      if (d == 0) return {n}_;')
            w(f'      {n}_ += d;')
            w(f'      {t} r = {n}_;')
            w(f'      notify{c}();')
            w('      return r;')
            w('   }')
            w(f'   {t} {n}Dec({t} d = 1) {{')
            w(f'      if (d == 0) return {n}_;')
            w(f'      {n}_ -= d;')
            w(f'      {t} r = {n}_;')
            w(f'      notify{c}();')
            w('      return r;')
            w('   }')
        elif a.valued:
            w(f'   using {c}Coll = {a.container()};')
            w(f'   {t} {n}({k} const& k) const {{')
            w(f'      auto const* p = {n}_.find(k);')
            w(f'      return p ? *p : {t}{{}};')
            w('   }')
            w(f'   {t} const* {n}Find({k} const& k) const {{ return {n}_.find(k); }}')
            w(f'   bool {n}Has({k} const& k) const {{ return {n}_.contains(k); }}')
            w(f'   {c}Coll const& {n}() const {{ return {n}_; }}')
            w(f'   std::size_t {n}Size() const {{ return {n}_.size(); }}')
            w(f'   typename {c}Coll::Iterator {n}Iter() const {{ return {n}_.begin(); }}')
            w(f'   typename {c}Coll::Iterator {n}IterFrom({k} const& k) const {{ return {n}_.iterFrom(k); }}')
            w(f'   void {n}Is({k} const& key, {t} const& v) {{')
            w(f'      auto [p, inserted] = {n}_.emplace(key, v);')
            w('      if (!inserted) {')
            w('         if (*p == v) return;')
            w('         *p = v;')
            w('      }')
            w(f'      {k} k(key);')
            w(f'      notify{c}(k);')
            w('   }')
            w(f'   void {n}Del({k} const& key) {{')
            w(f'      {k} k(key);')
            w(f'      if ({n}_.erase(k)) notify{c}(k);')
            w('   }')
            w(f'   void {n}DelAll() {{')
            w(f'      while (!{n}_.empty()) {{')
            w(f'         for (auto it = {n}_.begin(); it; ++it) {{')
            w(f'            {k} k(it.key());')
            w(f'            {n}_.erase(k);')
            w(f'            notify{c}(k);')
            w('         }')
            w('      }')
            w('   }')
        elif a.kind in ('children', 'orderedchildren'):
            m = 'HashMap' if a.kind == 'children' else 'OrderedMap'
            w(f'   using {c}Coll = Vek::{m}<{k}, Vek::Ptr<{t}>>;')
            w(f'   Vek::Ptr<{t}> {n}({k} const& k) {{')
            w(f'      auto* p = {n}_.find(k);')
            w(f'      return p ? *p : Vek::Ptr<{t}>();')
            w('   }')
            w(f'   Vek::Ptr<{t} const> {n}({k} const& k) const {{')
            w(f'      auto const* p = {n}_.find(k);')
            w(f'      return p ? Vek::Ptr<{t} const>(*p) : Vek::Ptr<{t} const>();')
            w('   }')
            w(f'   bool {n}Has({k} const& k) const {{ return {n}_.contains(k); }}')
            w(f'   {c}Coll const& {n}() const {{ return {n}_; }}')
            w(f'   std::size_t {n}Size() const {{ return {n}_.size(); }}')
            w(f'   typename {c}Coll::Iterator {n}Iter() const {{ return {n}_.begin(); }}')
            w(f'   typename {c}Coll::Iterator {n}IterFrom({k} const& k) const {{ return {n}_.iterFrom(k); }}')
            w('   template <class... A>')
            w(f'   Vek::Ptr<{t}> {n}Is({k} const& key, A&&... args) {{')
            w(f'      if (auto* p = {n}_.find(key)) {{')
            w('         (*p)->reinstantiate(std::forward<A>(args)...);')
            w('         return *p;')
            w('      }')
            w(f'      {k} k(key);')
            w(f'      Vek::Ptr<{t}> c = Vek::makeMember<{t}>(k, std::forward<A>(args)...);')
            w(f'      c->parentIs(this, "{n}");')
            w(f'      {n}_.emplace(k, c);')
            w(f'      notify{c}(k);')
            w('      return c;')
            w('   }')
            w(f'   void {n}Del({k} const& key) {{')
            w(f'      {k} k(key);')
            w(f'      Vek::Ptr<{t}> dead;')
            w(f'      if (!{n}_.erase(k, &dead)) return;')
            w('      dead->parentIs(nullptr, "");')
            w(f'      notify{c}(k);')
            w('   }')
            w(f'   void {n}DelAll() {{')
            w(f'      while (!{n}_.empty()) {{')
            w(f'         for (auto it = {n}_.begin(); it; ++it) {n}Del({k}(it.key()));')
            w('      }')
            w('   }')
        elif a.kind == 'entries':
            gen_entries_accessors(e, a, entities, w)
        elif a.kind == 'child':
            w(f'   Vek::Ptr<{t}> {n}() {{ return {n}_; }}')
            w(f'   Vek::Ptr<{t} const> {n}() const {{ return {n}_; }}')
            w('   template <class... A>')
            w(f'   Vek::Ptr<{t}> {n}Is(A&&... args) {{')
            w(f'      if ({n}_) {{')
            w(f'         {n}_->reinstantiate(std::forward<A>(args)...);')
            w(f'         return {n}_;')
            w('      }')
            w(f'      {n}_ = Vek::Ptr<{t}>(new {t}(std::forward<A>(args)...));')
            w(f'      {n}_->parentIs(this, "{n}");')
            w(f'      notify{c}();')
            w(f'      return {n}_;')
            w('   }')
            w(f'   void {n}Del() {{')
            w(f'      if (!{n}_) return;')
            w(f'      Vek::Ptr<{t}> dead = std::move({n}_);')
            w('      dead->parentIs(nullptr, "");')
            w(f'      notify{c}();')
            w('   }')
    for m in e.methods:
        w(f'   {m.rstrip(";")};')
    for line in e.code:
        w(f'   {line}')
    w('')
    w(' private:')
    for a in e.attrs:
        n, c = a.name, a.cap
        if a.kind in ('key', 'ctor'):
            w(f'   {a.typ} {n}_;')
        elif a.kind in ('scalar', 'counter'):
            w(f'   {a.typ} {n}_{" = " + a.default if a.default else "{}"};')
            w(f'   void notify{c}() const;')
        elif a.keyed:
            w(f'   {c}Coll {n}_;')
            w(f'   void notify{c}({a.key} const& k) const;')
            if a.kind == 'entries':
                for sa in entry_attrs(a, entities):
                    if sa.keyed:
                        w(f'   void notify{c}{sa.cap}({a.key} const& k, {sa.key} const& sk) const;')
                    else:
                        w(f'   void notify{c}{sa.cap}({a.key} const& k) const;')
        elif a.kind == 'child':
            w(f'   Vek::Ptr<{a.typ}> {n}_;')
            w(f'   void notify{c}() const;')
    w('};')
    w('')

    # NotifieeConst: one empty virtual per attribute.
    nbase = f'{e.base}::NotifieeConst' if e.base else 'Vek::NotifieeBase'
    w(f'class {e.name}::NotifieeConst : public {nbase} {{')
    w(' public:')
    w(f'   using Notifier = {e.name};')
    w(f'   NotifieeConst() : {nbase}({depth}) {{}}')
    w(f'   Vek::Ptr<{e.name} const> notifier() const {{')
    w(f'      return static_cast<{e.name} const*>(notifierBase());')
    w('   }')
    w(f'   void notifierIs(Vek::Ptr<{e.name} const> const& n) {{')
    w('      if (n.ptr() == notifierBase()) return;')
    w('      notifierBaseIs(n);')
    w('      if (n && !markedForDeletion()) onNotifier();')
    w('   }')
    w('   // Runs when a new, non-null notifier is assigned.')
    w('   virtual void onNotifier() {}')
    for a in e.attrs:
        if a.kind in ('key', 'ctor'):
            continue
        if a.keyed:
            w(f'   virtual void on{a.cap}({a.key} const&) {{}}')
        w(f'   virtual void on{a.cap}() {{}}')
        if a.kind == 'entries':
            for sa in entry_attrs(a, entities):
                if sa.keyed:
                    w(f'   virtual void on{a.cap}{sa.cap}({a.key} const&, {sa.key} const&) {{}}')
                else:
                    w(f'   virtual void on{a.cap}{sa.cap}({a.key} const&) {{}}')
    w('')
    w(' protected:')
    w(f'   explicit NotifieeConst(U8 depth) : {nbase}(depth) {{}}')
    w('};')
    w('')
    for a in e.attrs:
        if a.kind in ('key', 'ctor'):
            continue
        if a.kind == 'entries':
            for sa in entry_attrs(a, entities):
                if sa.keyed:
                    w(f'inline void {e.name}::notify{a.cap}{sa.cap}({a.key} const& k, {sa.key} const& sk) const {{')
                    w(f'   notify<NotifieeConst>({depth}, [&k, &sk](NotifieeConst* n) {{ n->on{a.cap}{sa.cap}(k, sk); }});')
                else:
                    w(f'inline void {e.name}::notify{a.cap}{sa.cap}({a.key} const& k) const {{')
                    w(f'   notify<NotifieeConst>({depth}, [&k](NotifieeConst* n) {{ n->on{a.cap}{sa.cap}(k); }});')
                w('}')
        if a.keyed:
            w(f'inline void {e.name}::notify{a.cap}({a.key} const& k) const {{')
            w(f'   notify<NotifieeConst>({depth}, [&k](NotifieeConst* n) {{ n->on{a.cap}(k); }});')
        else:
            w(f'inline void {e.name}::notify{a.cap}() const {{')
            w(f'   notify<NotifieeConst>({depth}, [](NotifieeConst* n) {{ n->on{a.cap}(); }});')
        w('}')
    w('')

    # Reactor: forwards onX to the machine's handleX when the machine has one.
    chain = []
    x = e
    while x:
        chain = x.attrs + chain
        x = entities.get(x.base) if x.base else None
    watch = [a for a in chain if a.kind not in ('key', 'ctor')]
    w('template <class S>')
    w(f'class {e.name}::Reactor : public {e.name}::NotifieeConst {{')
    w(' public:')
    w('   using OnAssign = void (S::*)();')
    w(f'   Reactor(S* sm, Vek::Ptr<{e.name} const> const& n, OnAssign onAssign = nullptr)')
    w('      : sm_(sm), onAssign_(onAssign) {')
    w('      this->ownerIs(sm);')
    w('      this->notifierBaseIs(n);')
    w('   }')
    w('   S* sm() const { return sm_; }')
    w('   void onNotifier() override {')
    w('      if (!onAssign_) return;')
    w('      S* sm = sm_;')
    w('      OnAssign h = onAssign_;')
    w('      Vek::Sm::run(sm, [sm, h] { (sm->*h)(); });')
    w('   }')
    for a in watch:
        if a.kind == 'entries':
            for sa in entry_attrs(a, entities):
                h = f'handle{a.cap}{sa.cap}'
                if sa.keyed:
                    w(f'   void on{a.cap}{sa.cap}({a.key} const& k, {sa.key} const& sk) override {{')
                    w(f'      if constexpr (requires(S* s) {{ s->{h}(k, sk); }})')
                    w(f'         Vek::Sm::run(sm_, [sm = sm_, &k, &sk] {{ sm->{h}(k, sk); }});')
                else:
                    w(f'   void on{a.cap}{sa.cap}({a.key} const& k) override {{')
                    w(f'      if constexpr (requires(S* s) {{ s->{h}(k); }})')
                    w(f'         Vek::Sm::run(sm_, [sm = sm_, &k] {{ sm->{h}(k); }});')
                w('   }')
        if a.keyed:
            w(f'   void on{a.cap}({a.key} const& k) override {{')
            w(f'      if constexpr (requires(S* s) {{ s->handle{a.cap}(k); }})')
            w(f'         Vek::Sm::run(sm_, [sm = sm_, &k] {{ sm->handle{a.cap}(k); }});')
            w('   }')
        else:
            w(f'   void on{a.cap}() override {{')
            w(f'      if constexpr (requires(S* s) {{ s->handle{a.cap}(); }})')
            w(f'         Vek::Sm::run(sm_, [sm = sm_] {{ sm->handle{a.cap}(); }});')
            w('   }')
    w('')
    w(' private:')
    w('   S* sm_;')
    w('   OnAssign onAssign_;')
    w('};')
    w('')
    # MemberReactor: one per member of a watched collection; every change of
    # the member goes to one handler with the member's key.
    w('template <class S, class K>')
    w(f'class {e.name}::MemberReactor : public {e.name}::NotifieeConst {{')
    w(' public:')
    w('   using Handler = void (S::*)(K const&);')
    w(f'   MemberReactor(S* sm, Vek::Ptr<{e.name} const> const& n, K const& key, Handler h)')
    w('      : sm_(sm), key_(key), handler_(h) {')
    w('      this->ownerIs(sm);')
    w('      this->notifierBaseIs(n);')
    w('   }')
    w('   K const& key() const { return key_; }')
    w('   void onNotifier() override { fire(); }')
    for a in watch:
        if a.kind == 'entries':
            for sa in entry_attrs(a, entities):
                if sa.keyed:
                    w(f'   void on{a.cap}{sa.cap}({a.key} const&, {sa.key} const&) override {{ fire(); }}')
                else:
                    w(f'   void on{a.cap}{sa.cap}({a.key} const&) override {{ fire(); }}')
        if a.keyed:
            w(f'   void on{a.cap}({a.key} const&) override {{ fire(); }}')
        else:
            w(f'   void on{a.cap}() override {{ fire(); }}')
    w('')
    w(' private:')
    w('   void fire() {')
    w('      // The handler may delete this reactor: work on copies.')
    w('      S* sm = sm_;')
    w('      Handler h = handler_;')
    w('      K key = key_;')
    w('      Vek::Sm::run(sm, [sm, h, &key] { (sm->*h)(key); });')
    w('   }')
    w('   S* sm_;')
    w('   K key_;')
    w('   Handler handler_;')
    w('};')
    w('')


def main():
    src, dst = sys.argv[1], sys.argv[2]
    imports = []
    items, includes = parse(src, imports)
    entities = {}
    # An imported file's entities may serve as bases; its header is included.
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    for imp in imports:
        other, _ = parse(os.path.join(root, imp))
        for i in other:
            if isinstance(i, Entity):
                entities[i.name] = i
                entities[i.full] = i
        includes.insert(0, '"' + imp[:-len('.vek')] + '.h"')
    for i in items:
        if isinstance(i, Entity):
            entities[i.name] = i
    out = ['// Generated by tools/vekgen.py from ' + src.split('/')[-1] + '; do not edit.',
           '#pragma once', '#include <ostream>', '#include <string>',
           '#include "runtime/vek/Attr.h"']
    for inc in includes:
        out.append(f'#include {inc}')
    out.append('')
    ns = None
    for i in items:
        if i.ns != ns:
            if ns:
                out.append(f'}}  // namespace {ns}')
                out.append('')
            if i.ns:
                out.append(f'namespace {i.ns} {{')
                out.append('')
            ns = i.ns
        if isinstance(i, Decl):
            out.append(i.text)
            out.append('')
        elif isinstance(i, Enum):
            gen_enum(i, out)
        elif i.inline:
            gen_inline(i, entities, out)
        else:
            gen_entity(i, entities, out)
    if ns:
        out.append(f'}}  // namespace {ns}')
    text = '\n'.join(out) + '\n'
    try:
        with open(dst) as f:
            if f.read() == text:
                return
    except OSError:
        pass
    os.makedirs(os.path.dirname(dst), exist_ok=True)
    with open(dst, 'w') as f:
        f.write(text)


if __name__ == '__main__':
    main()

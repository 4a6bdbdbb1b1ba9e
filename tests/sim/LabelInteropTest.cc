// Label distribution with peers of other makes, played by the test: mappings
// that answer our Label Requests without naming them, or naming the wrong
// request or one we never sent; wildcard Withdraws and Releases, on their own
// and followed at once by messages about single FECs; a peer that maps and
// withdraws a FEC again and again.
#include <set>

#include "tests/sim/SessionFixtures.h"

using namespace LdpTest::Sessions;

namespace {

Mpls::FwdEqvClass fec(std::string const& p) {
   return Mpls::FwdEqvClass(*Nolu::Prefix::fromString(p));
}
B::Buf prefix(std::string const& p) {
   auto pf = *Nolu::Prefix::fromString(p);
   return B::prefixElement(pf.addr(), U8(pf.len()));
}

// The agent (2.2.2.2) and the peer (1.1.1.1) on 10.0.0.0/24; routes of the
// agent go through the peer (10.0.0.1) or through a router that speaks no LDP
// (10.0.0.9).
struct Interop : AgentAndFake {
   U32 nextFecId = 1;
   IpAddr const viaPeer{10, 0, 0, 1};
   IpAddr const viaOther{10, 0, 0, 9};

   void block(U32 base, U32 size) {
      auto bl = b.store()->get<Mpls::Api::Status>("mpls/status")->labelBlockAllocationIs("ldp");
      bl->baseIs(base);
      bl->sizeIs(size);
   }
   void route(std::string const& p, IpAddr hop) {
      auto fwd = b.store()->get<Tesh::Fib::ForwardingStatus>("forwarding/status");
      U32 id = nextFecId++;
      fwd->fecIs(id)->viaIs(Via(Nolu::IpGenAddr(hop), Nolu::IntfId("eth1")), true);
      auto r = b.store()->get<Tesh::Fib::RouteStatus>("routing/status")->routeIs(
         *Nolu::Prefix::fromString(p));
      r->routeTypeIs(2);
      r->fecIdIs(id);
   }
   // The session up to the exchange of addresses, the peer proposing
   // downstream on demand or unsolicited advertisement.
   void up(bool onDemand) {
      if (onDemand) b.config()->ldpLabelAdvDsplIs(downstreamOnDemandAdvDspl_);
      untilInitSent();
      fake.send({B::initMsg(100, r2Id, 30, 4096, onDemand), B::keepAliveMsg(101)});
      ASSERT_TRUE(fake.runUntil([&] { return state() == stateOperational_; }, 5.0));
      fake.send({B::addressMsg(102, {IpAddr(1, 1, 1, 1), viaPeer})});
      ASSERT_TRUE(fake.runUntil(
         [&] { return ss() && ss()->sessionOpState() == sessionOpAddrExchanged_; }, 5.0));
      EXPECT_EQ(onDemand ? downstreamOnDemandAdvDspl_ : unsolicitedAdvDspl_,
                ss()->operLabelAdvDspl());
   }
   LdpFecSessionStatus const* fs(std::string const& p) {
      return b.status()->ldpFecSessionStatusColl()->fecSessionStatusFind(
         LdpFecSessionId(fec(p), LdpSessionId(r1Id)));
   }
   U32 peerState(std::string const& p) {
      auto const* s = fs(p);
      return s ? U32(s->peerLabelSessionState()) : 0;
   }
   // The messages of a type that the agent sent to the peer, parsed; for one
   // FEC when given.
   std::vector<Ptr<LdpMsgParser>> sent(LdpMsgType type, std::string const& p = "") {
      std::vector<Ptr<LdpMsgParser>> out;
      for (auto const& m : fake.rxMsgs()) {
         if (m.type != type) continue;
         auto parser = ldpMsgParserGet(m.pkt, m.offset);
         if (!p.empty() && !(parser->ldpFecTlvParser() &&
                             parser->ldpFecTlvParser()->fwdEqvCls(0) == fec(p)))
            continue;
         out.push_back(parser);
      }
      return out;
   }
   // The labels of the Releases that the agent sent; 0 for one without.
   std::multiset<U32> released(std::string const& p = "") {
      std::multiset<U32> out;
      for (auto const& m : sent(LdpLabelRelease_, p))
         out.insert(m->genLabelTlv() ? m->genLabelTlv()->label().value() : 0);
      return out;
   }
};

}  // namespace

// A peer that is not the next hop maps a FEC naming a Label Request that we
// never sent: there is nothing to abort, and no Label Abort Request goes out,
// least of all one naming request 0.
TEST_F(Interop, MappingNamingARequestNeverSentAbortsNothing) {
   route("9.9.9.3/32", viaOther);
   up(false);
   fake.send({B::labelMsg(LdpLabelMapping_, 600, {prefix("23.0.0.0/24")}, 900,
                          B::labelReqMsgIdTlv(777)),
              B::labelMsg(LdpLabelMapping_, 601, {prefix("9.9.9.3/32")}, 901,
                          B::labelReqMsgIdTlv(778))});
   fake.runFor(1.0);
   for (auto const& m : sent(LdpLabelAbortReq_)) {
      ADD_FAILURE() << "Abort sent for " << m->ldpFecTlvParser()->fwdEqvCls(0) << ", request "
                    << (m->labelReqMsgIdTlv() ? m->labelReqMsgIdTlv()->msgId() : 0);
   }
   for (char const* p : {"23.0.0.0/24", "9.9.9.3/32"}) {
      ASSERT_TRUE(fs(p)) << p;
      EXPECT_FALSE(peerState(p) & 0x1) << p;
      EXPECT_EQ(0u, fs(p)->localLabelRequestMsgId()) << p;
      // Liberal retention keeps the labels.
      EXPECT_TRUE(peerState(p) & 0x4) << p;
   }
   EXPECT_EQ(stateOperational_, state());
}

// Downstream on demand: the next hop answers our requests with mappings that
// do not name them (the Label Request Message ID is left out, or names
// another request). The mapping for the FEC answers the request all the
// same, and when the peer later withdraws its label, we release it and ask
// again, rather than waiting for an answer that already came.
TEST_F(Interop, MappingWithoutOrWithAWrongRequestIdAnswersTheRequest) {
   route("9.9.9.1/32", viaPeer);
   route("9.9.9.2/32", viaPeer);
   up(true);
   ASSERT_TRUE(fake.runUntil(
      [&] { return sent(LdpLabelRequest_, "9.9.9.1/32").size() == 1 &&
                   sent(LdpLabelRequest_, "9.9.9.2/32").size() == 1; },
      5.0));
   U32 req2 = sent(LdpLabelRequest_, "9.9.9.2/32")[0]->msgId();
   EXPECT_TRUE(peerState("9.9.9.1/32") & 0x1);
   fake.send({B::labelMsg(LdpLabelMapping_, 500, {prefix("9.9.9.1/32")}, 801),
              B::labelMsg(LdpLabelMapping_, 501, {prefix("9.9.9.2/32")}, 802,
                          B::labelReqMsgIdTlv(req2 + 1000))});
   fake.runFor(0.5);
   for (auto [p, label] : {std::pair<char const*, U32>{"9.9.9.1/32", 801}, {"9.9.9.2/32", 802}}) {
      ASSERT_TRUE(fs(p)) << p;
      EXPECT_EQ(mappingRcvd_, fs(p)->peerLabelState(Nolu::MplsLabel(label))) << p;
      // Nothing outstanding any more; the request we sent is still the one
      // on record.
      EXPECT_FALSE(peerState(p) & 0x1) << p;
      EXPECT_NE(0u, fs(p)->localLabelRequestMsgId()) << p;
   }
   EXPECT_EQ(req2, fs("9.9.9.2/32")->localLabelRequestMsgId());

   // The peer withdraws both labels: released, and asked for again.
   fake.send({B::labelMsg(LdpLabelWithdraw_, 502, {prefix("9.9.9.1/32")}, 801),
              B::labelMsg(LdpLabelWithdraw_, 503, {prefix("9.9.9.2/32")}, 802)});
   ASSERT_TRUE(fake.runUntil(
      [&] { return sent(LdpLabelRequest_, "9.9.9.1/32").size() == 2 &&
                   sent(LdpLabelRequest_, "9.9.9.2/32").size() == 2; },
      5.0))
      << "requests stay outstanding after the mappings";
   EXPECT_EQ((std::multiset<U32>{801}), released("9.9.9.1/32"));
   EXPECT_EQ((std::multiset<U32>{802}), released("9.9.9.2/32"));
   EXPECT_EQ(0u, fake.rxCount(LdpLabelAbortReq_));
   // This time the answers name the requests: the path is back.
   U32 again = sent(LdpLabelRequest_, "9.9.9.1/32")[1]->msgId();
   fake.send({B::labelMsg(LdpLabelMapping_, 504, {prefix("9.9.9.1/32")}, 811,
                          B::labelReqMsgIdTlv(again))});
   fake.runFor(0.5);
   EXPECT_EQ(mappingRcvd_, fs("9.9.9.1/32")->peerLabelState(Nolu::MplsLabel(811)));
   EXPECT_FALSE(peerState("9.9.9.1/32") & 0x1);
   EXPECT_EQ(stateOperational_, state());
}

// Downstream on demand, a next hop that maps a FEC and withdraws it again and
// again: each time we release and ask again, and what the FEC session keeps
// of its requests stays the one request that is outstanding.
TEST_F(Interop, MappingAndWithdrawCyclesKeepOneRequestOnRecord) {
   route("9.9.9.4/32", viaPeer);
   up(true);
   U32 const cycles = 20;
   for (U32 k = 0; k < cycles; ++k) {
      ASSERT_TRUE(fake.runUntil(
         [&] { return sent(LdpLabelRequest_, "9.9.9.4/32").size() == k + 1; }, 5.0))
         << "cycle " << k;
      U32 req = sent(LdpLabelRequest_, "9.9.9.4/32").back()->msgId();
      fake.send({B::labelMsg(LdpLabelMapping_, 1000 + 2 * k, {prefix("9.9.9.4/32")}, 500 + k,
                             B::labelReqMsgIdTlv(req))});
      fake.runFor(0.3);
      ASSERT_EQ(mappingRcvd_, fs("9.9.9.4/32")->peerLabelState(Nolu::MplsLabel(500 + k)));
      EXPECT_LE(fs("9.9.9.4/32")->msgIdReqMsgSize(), 1u) << "cycle " << k;
      fake.send({B::labelMsg(LdpLabelWithdraw_, 1001 + 2 * k, {prefix("9.9.9.4/32")}, 500 + k)});
   }
   ASSERT_TRUE(fake.runUntil(
      [&] { return sent(LdpLabelRequest_, "9.9.9.4/32").size() == cycles + 1; }, 5.0));
   EXPECT_EQ(cycles, released("9.9.9.4/32").size());
   // The outstanding request is the one on record, so that its answer finds
   // the FEC.
   auto const* s = fs("9.9.9.4/32");
   EXPECT_EQ(1u, s->msgIdReqMsgSize());
   EXPECT_TRUE(s->msgIdReqMsgHas(s->localLabelRequestMsgId()));
   fake.send({B::notificationMsg(2000, statusNoRoute_, false, s->localLabelRequestMsgId(),
                                 LdpLabelRequest_)});
   ASSERT_TRUE(fake.runUntil([&] { return fs("9.9.9.4/32")->flagNoRouteNotification(); }, 2.0));
   EXPECT_EQ(0u, fs("9.9.9.4/32")->msgIdReqMsgSize());
   EXPECT_EQ(stateOperational_, state());
}

// A wildcard Label Release gives back every label we advertised to the peer,
// whether the peer ever spoke of the FEC or not; nothing answers it, and the
// FECs are not advertised to the peer again until it asks. The walk over the
// FECs goes in slices, and a Label Request that follows the Release in the
// same PDU is served after the Release, not undone by it.
TEST_F(Interop, WildcardReleaseGivesBackEveryLabelAdvertisedToThePeer) {
   block(2000, 1000);
   U32 const n = 300;
   std::vector<std::string> fecs;
   for (U32 i = 0; i < n; ++i) {
      fecs.push_back("30.0." + std::to_string(i / 200) + "." + std::to_string(i % 200 + 1) + "/32");
      route(fecs.back(), viaOther);
   }
   up(false);
   ASSERT_TRUE(fake.runUntil([&] { return fake.rxCount(LdpLabelMapping_) >= n; }, 10.0));
   fake.runFor(1.0);
   for (auto const& p : fecs) ASSERT_EQ(1u, fs(p)->localLabelStateSize()) << p;
   // The peer spoke of one of them before: a Release of a label it does not
   // hold, which changes nothing.
   fake.send({B::labelMsg(LdpLabelRelease_, 700, {prefix(fecs[0])}, 3)});
   fake.runFor(0.5);
   ASSERT_EQ(1u, fs(fecs[0])->localLabelStateSize());
   std::size_t mappings = fake.rxCount(LdpLabelMapping_);
   std::size_t msgs = fake.rxMsgs().size();

   fake.send({B::labelMsg(LdpLabelRelease_, 701, {B::wildcardElement()})});
   fake.runFor(1.0);
   for (auto const& p : fecs) {
      EXPECT_EQ(0u, fs(p)->localLabelStateSize()) << p;
      EXPECT_FALSE(b.status()->ldpFecConfigColl()->fecConfigFind(fec(p))->advertisedToHas(
         LdpSessionId(r1Id)))
         << p;
   }
   auto const& wild = b.agent()->scheduler()->allStats().at("RxSmWildcard");
   EXPECT_GT(wild.yields, 0u);
   // Nothing answers a Release, and nothing is advertised again unasked.
   fake.runFor(2.0);
   for (std::size_t i = msgs; i < fake.rxMsgs().size(); ++i)
      EXPECT_EQ(LdpKeepAlive_, fake.rxMsgs()[i].type) << ldpMsgTypeStr(fake.rxMsgs()[i].type);
   EXPECT_EQ(mappings, fake.rxCount(LdpLabelMapping_));

   // A Release and a Request in one PDU: the Request is answered, and its
   // mapping stands.
   fake.send({B::labelMsg(LdpLabelRelease_, 702, {B::wildcardElement()}),
              B::labelMsg(LdpLabelRequest_, 703, {prefix(fecs[n - 1])})});
   ASSERT_TRUE(fake.runUntil([&] { return fake.rxCount(LdpLabelMapping_) == mappings + 1; }, 5.0));
   auto m = sent(LdpLabelMapping_).back();
   EXPECT_EQ(fec(fecs[n - 1]), m->ldpFecTlvParser()->fwdEqvCls(0));
   ASSERT_TRUE(m->labelReqMsgIdTlv());
   EXPECT_EQ(703u, m->labelReqMsgIdTlv()->msgId());
   fake.runFor(1.0);
   EXPECT_EQ(1u, fs(fecs[n - 1])->localLabelStateSize());
   EXPECT_TRUE(b.status()->ldpFecConfigColl()->fecConfigFind(fec(fecs[n - 1]))->advertisedToHas(
      LdpSessionId(r1Id)));
   EXPECT_EQ(stateOperational_, state());
}

// A wildcard Label Withdraw takes back every label the peer gave us, and
// each is released with its label; FECs the peer never mapped are not
// answered, least of all with Releases that name no label. With a label, the
// wildcard withdraws that label alone. A mapping that follows the Withdraw in
// the same PDU stands.
TEST_F(Interop, WildcardWithdrawReleasesThePeersLabelsAndNothingElse) {
   block(2000, 100);
   route("30.0.0.1/32", viaOther);
   route("30.0.0.2/32", viaOther);
   up(false);
   ASSERT_TRUE(fake.runUntil([&] { return fake.rxCount(LdpLabelMapping_) >= 2; }, 10.0));
   // The peer maps three FECs, and asks for one of ours (so it has spoken
   // of it) without mapping it.
   fake.send({B::labelMsg(LdpLabelMapping_, 800, {prefix("40.0.0.0/24")}, 900),
              B::labelMsg(LdpLabelMapping_, 801, {prefix("40.0.1.0/24")}, 901),
              B::labelMsg(LdpLabelMapping_, 802, {prefix("40.0.2.0/24")}, 902),
              B::labelMsg(LdpLabelRequest_, 803, {prefix("30.0.0.1/32")})});
   fake.runFor(1.0);
   for (char const* p : {"40.0.0.0/24", "40.0.1.0/24", "40.0.2.0/24"})
      ASSERT_TRUE(peerState(p) & 0x4) << p;
   ASSERT_TRUE(fs("30.0.0.1/32"));

   // One label, wherever it is bound.
   fake.send({B::labelMsg(LdpLabelWithdraw_, 804, {B::wildcardElement()}, 901)});
   ASSERT_TRUE(fake.runUntil([&] { return fake.rxCount(LdpLabelRelease_) >= 1; }, 2.0));
   fake.runFor(1.0);
   EXPECT_EQ((std::multiset<U32>{901}), released());
   EXPECT_EQ((std::multiset<U32>{901}), released("40.0.1.0/24"));
   EXPECT_TRUE(peerState("40.0.0.0/24") & 0x4);
   EXPECT_TRUE(peerState("40.0.2.0/24") & 0x4);

   // Every label, then a new mapping for one of the FECs at once.
   fake.send({B::labelMsg(LdpLabelWithdraw_, 805, {B::wildcardElement()}),
              B::labelMsg(LdpLabelMapping_, 806, {prefix("40.0.0.0/24")}, 910)});
   fake.runFor(2.0);
   EXPECT_EQ((std::multiset<U32>{900, 901, 902}), released());
   EXPECT_EQ((std::multiset<U32>{900}), released("40.0.0.0/24"));
   EXPECT_EQ((std::multiset<U32>{902}), released("40.0.2.0/24"));
   EXPECT_TRUE(released("30.0.0.1/32").empty());
   EXPECT_TRUE(released("30.0.0.2/32").empty());
   EXPECT_EQ(mappingRcvd_, fs("40.0.0.0/24")->peerLabelState(Nolu::MplsLabel(910)));
   EXPECT_EQ(1u, fs("40.0.0.0/24")->peerLabelStateSize());
   EXPECT_FALSE(peerState("40.0.2.0/24") & 0x4);
   EXPECT_EQ(stateOperational_, state());
}

// Pseudowires signalled over LDP: a request becomes a targeted Hello target,
// a Label Mapping with the PWid FEC and the response once the peer's label
// matches; each mismatch and fault, status by Notification and by Withdraw,
// the peer's restart and a change of our label, against a peer played by
// the test and between two agents.
#include "host/PwView.h"
#include "tests/sim/PwFixtures.h"

using namespace LdpTest::Pw;

namespace {

// The agent (2.2.2.2) and a peer played by the test (1.1.1.1).
struct PwFake : AgentAndFake {
   void SetUp() override {
      AgentAndFake::SetUp();
      untilOperational();
      fake.send({B::addressMsg(102, {IpAddr(1, 1, 1, 1), IpAddr(10, 0, 0, 1)})});
      ASSERT_TRUE(fake.runUntil(
         [&] { return ss() && ss()->sessionOpState() == sessionOpAddrExchanged_; }, 5.0));
   }
   // The label messages that the agent sent, parsed, from the n-th on.
   std::vector<Ptr<LdpMsgParser>> sent(LdpMsgType type) {
      std::vector<Ptr<LdpMsgParser>> out;
      for (auto const& m : fake.rxMsgs())
         if (m.type == type) out.push_back(ldpMsgParserGet(m.pkt, m.offset));
      return out;
   }
   bool sentCount(LdpMsgType type, std::size_t n) {
      return fake.runUntil([&] { return fake.rxCount(type) >= n; }, 5.0);
   }
   int status() { return pwStatus(b, "1.1.1.1", 7); }
   Pseudowire::PseudowireLdpResponse const* response() { return pwResponse(b, "1.1.1.1", 7); }
};

TEST_F(PwFake, MappingRequestStatusAndLabelChangeOnTheWire) {
   pwRequestIs(b, "1.1.1.1", {.pwId = 7, .label = 5000});
   ASSERT_TRUE(sentCount(LdpLabelMapping_, 1));
   // The mapping: the PWid FEC with the MTU, our label, the PW Status TLV.
   auto m = sent(LdpLabelMapping_).back();
   ASSERT_TRUE(m->validMsg());
   auto pw = m->ldpFecTlvParser()->pwFwdEqvCls(0);
   EXPECT_EQ(7u, pw.fwdEqvClass().pwId().value());
   EXPECT_EQ(Pseudowire::pwTypeEthernet_, pw.fwdEqvClass().pwType());
   EXPECT_FALSE(pw.fwdEqvClass().controlWord());
   EXPECT_EQ(1500u, pw.fwdEqvClassParams().mtu());
   EXPECT_EQ(5000u, m->genLabelTlv()->label().value());
   ASSERT_TRUE(m->pwStatusTlv());
   EXPECT_EQ(0u, m->pwStatusTlv()->flags());
   EXPECT_FALSE(m->labelReqMsgIdTlv());
   // A targeted Hello target serves the pseudowire; no remote end yet.
   EXPECT_TRUE(b.status()->pwTargetConfigColl()->pwTargetHas(Nolu::IpGenAddr(IpAddr(1, 1, 1, 1))));
   ASSERT_TRUE(s.runUntil([&] { return status() == Pseudowire::connectorNoRemote; }, 2.0));

   // A Label Request reaches the side that advertises the label, and is
   // answered with the mapping that names it.
   fake.send({pwLabelMsg(LdpLabelRequest_, 200, pwElement(7), 0)});
   ASSERT_TRUE(sentCount(LdpLabelMapping_, 2));
   m = sent(LdpLabelMapping_).back();
   ASSERT_TRUE(m->labelReqMsgIdTlv());
   EXPECT_EQ(200u, m->labelReqMsgIdTlv()->msgId());

   // The peer's mapping brings the pseudowire up.
   fake.send({pwLabelMsg(LdpLabelMapping_, 201, pwElement(7, 1500), 600, 0)});
   ASSERT_TRUE(s.runUntil([&] { return status() == Pseudowire::connectorUp; }, 2.0));
   EXPECT_EQ(600u, response()->peerLabel().value());
   EXPECT_EQ(1500u, response()->mtu());
   EXPECT_EQ(Pseudowire::pwTypeEthernet_, response()->remotePwType());

   // The peer's status by Notification: not forwarding, label and MTU kept.
   fake.send({pwStatusNotification(202, pwElement(7), Pseudowire::pwStatusNotForwarding_)});
   ASSERT_TRUE(
      s.runUntil([&] { return status() == Pseudowire::connectorRemoteNotForwarding; }, 2.0));
   EXPECT_EQ(600u, response()->peerLabel().value());
   EXPECT_EQ(1500u, response()->mtu());
   EXPECT_EQ(Pseudowire::pwStatusNotForwarding_, response()->pwStatusFlags());
   fake.send({pwStatusNotification(203, pwElement(7), 0)});
   ASSERT_TRUE(s.runUntil([&] { return status() == Pseudowire::connectorUp; }, 2.0));

   // Our attachment circuit down: a PW Status Notification, no Withdraw.
   pwRequestIs(b, "1.1.1.1", {.pwId = 7, .label = 5000, .up = false});
   ASSERT_TRUE(sentCount(LdpNotification_, 1));
   auto n = sent(LdpNotification_).back();
   ASSERT_TRUE(n->pwStatusTlv());
   EXPECT_EQ(U32(Pseudowire::pwStatusAcRxFault_ | Pseudowire::pwStatusAcTxFault_),
             n->pwStatusTlv()->flags());
   EXPECT_EQ(7u, n->ldpFecTlvParser()->pwFwdEqvCls(0).fwdEqvClass().pwId().value());
   pwRequestIs(b, "1.1.1.1", {.pwId = 7, .label = 5000});
   ASSERT_TRUE(sentCount(LdpNotification_, 2));
   EXPECT_EQ(0u, sent(LdpNotification_).back()->pwStatusTlv()->flags());
   EXPECT_EQ(0u, fake.rxCount(LdpLabelWithdraw_));

   // Our label changes: Withdraw of the old one, and the new mapping only
   // after the peer's Release.
   pwRequestIs(b, "1.1.1.1", {.pwId = 7, .label = 5001});
   ASSERT_TRUE(sentCount(LdpLabelWithdraw_, 1));
   EXPECT_EQ(5000u, sent(LdpLabelWithdraw_).back()->genLabelTlv()->label().value());
   fake.runFor(1.0);
   EXPECT_EQ(2u, fake.rxCount(LdpLabelMapping_));
   fake.send({pwLabelMsg(LdpLabelRelease_, 204, pwElement(7), 5000)});
   ASSERT_TRUE(sentCount(LdpLabelMapping_, 3));
   EXPECT_EQ(5001u, sent(LdpLabelMapping_).back()->genLabelTlv()->label().value());

   // The peer's Withdraw is answered with a Release of its label; no label,
   // no pseudowire.
   fake.send({pwLabelMsg(LdpLabelWithdraw_, 205, pwElement(7), 600)});
   ASSERT_TRUE(sentCount(LdpLabelRelease_, 1));
   EXPECT_EQ(600u, sent(LdpLabelRelease_).back()->genLabelTlv()->label().value());
   ASSERT_TRUE(s.runUntil([&] { return status() == Pseudowire::connectorNoRemote; }, 2.0));
   EXPECT_FALSE(response()->peerLabel().isValid());

   // A Withdraw without a label releases whatever is held.
   fake.send({pwLabelMsg(LdpLabelMapping_, 206, pwElement(7), 601, 0)});
   ASSERT_TRUE(s.runUntil([&] { return status() == Pseudowire::connectorUp; }, 2.0));
   fake.send({pwLabelMsg(LdpLabelWithdraw_, 207, pwElement(7), 0)});
   ASSERT_TRUE(sentCount(LdpLabelRelease_, 2));
   EXPECT_EQ(601u, sent(LdpLabelRelease_).back()->genLabelTlv()->label().value());

   // The request gone: our label is withdrawn, the response and target go.
   pwConfig(b)->ldpRequestDel(pwKey("1.1.1.1", 7));
   ASSERT_TRUE(sentCount(LdpLabelWithdraw_, 2));
   EXPECT_EQ(5001u, sent(LdpLabelWithdraw_).back()->genLabelTlv()->label().value());
   fake.send({pwLabelMsg(LdpLabelRelease_, 208, pwElement(7), 5001)});
   ASSERT_TRUE(s.runUntil([&] { return !response(); }, 2.0));
   EXPECT_FALSE(b.status()->pwTargetConfigColl()->pwTargetHas(Nolu::IpGenAddr(IpAddr(1, 1, 1, 1))));
   fake.runFor(1.0);
   EXPECT_EQ(0u, b.status()->localPwFecSessionConfigColl()->fecSessionConfigSize());
   EXPECT_EQ(0u, b.status()->remotePwFecSessionConfigColl()->fecSessionConfigSize());
   EXPECT_EQ(stateOperational_, state());
}

TEST_F(PwFake, APeerWithoutStatusTlvGetsWithdrawsAndMismatchesAreTold) {
   pwRequestIs(b, "1.1.1.1", {.pwId = 7, .label = 5000});
   ASSERT_TRUE(sentCount(LdpLabelMapping_, 1));
   // The peer's mapping has no PW Status TLV: faults go by Withdraw.
   fake.send({pwLabelMsg(LdpLabelMapping_, 300, pwElement(7), 700)});
   ASSERT_TRUE(s.runUntil([&] { return status() == Pseudowire::connectorUp; }, 2.0));
   pwRequestIs(b, "1.1.1.1", {.pwId = 7, .label = 5000, .up = false});
   ASSERT_TRUE(sentCount(LdpLabelWithdraw_, 1));
   EXPECT_EQ(0u, fake.rxCount(LdpNotification_));
   fake.send({pwLabelMsg(LdpLabelRelease_, 301, pwElement(7), 5000)});
   fake.runFor(1.0);
   // No mapping while the fault stands; one without the TLV once it clears.
   EXPECT_EQ(1u, fake.rxCount(LdpLabelMapping_));
   EXPECT_EQ(Pseudowire::connectorNoLocalMapping, status());
   pwRequestIs(b, "1.1.1.1", {.pwId = 7, .label = 5000});
   ASSERT_TRUE(sentCount(LdpLabelMapping_, 2));
   EXPECT_FALSE(sent(LdpLabelMapping_).back()->pwStatusTlv());
   ASSERT_TRUE(s.runUntil([&] { return status() == Pseudowire::connectorUp; }, 2.0));

   // The peer's FEC of another PW type, then another control word.
   fake.send({pwLabelMsg(LdpLabelWithdraw_, 302, pwElement(7), 700)});
   fake.send({pwLabelMsg(LdpLabelMapping_, 303, pwElement(7, 1500, 4), 701, 0)});
   ASSERT_TRUE(
      s.runUntil([&] { return status() == Pseudowire::connectorPwTypeMismatch; }, 2.0));
   EXPECT_FALSE(response()->peerLabel().isValid());
   fake.send({pwLabelMsg(LdpLabelWithdraw_, 304, pwElement(7, 1500, 4), 701)});
   fake.send({pwLabelMsg(LdpLabelMapping_, 305, pwElement(7, 1500, 5, true), 702, 0)});
   ASSERT_TRUE(
      s.runUntil([&] { return status() == Pseudowire::connectorControlWordMismatch; }, 2.0));
   // Beside a matching one, a mismatched FEC doesn't count.
   fake.send({pwLabelMsg(LdpLabelMapping_, 306, pwElement(7), 703, 0)});
   ASSERT_TRUE(s.runUntil([&] { return status() == Pseudowire::connectorUp; }, 2.0));
   EXPECT_EQ(703u, response()->peerLabel().value());
   // Messages for pseudowires that this side doesn't have leave nothing.
   fake.send({pwLabelMsg(LdpLabelRelease_, 307, pwElement(99), 5)});
   fake.send({pwLabelMsg(LdpLabelRequest_, 308, pwElement(98), 0)});
   fake.runFor(1.0);
   EXPECT_EQ(stateOperational_, state());
   EXPECT_EQ(2u, fake.rxCount(LdpLabelMapping_));
}

// What peers of other makes send: a VPLS peer's MAC Address Withdraw (an
// empty address list, the PWid FEC of the VPLS instance and a MAC List TLV),
// a Withdraw for a pseudowire that this side doesn't have, and a FEC of an
// address family that this LSR doesn't run. None may harm the session.
TEST_F(PwFake, PeersOfOtherMakesKeepTheSessionAndGetTheirAnswers) {
   pwRequestIs(b, "1.1.1.1", {.pwId = 7, .label = 5000});
   ASSERT_TRUE(sentCount(LdpLabelMapping_, 1));
   fake.send({pwLabelMsg(LdpLabelMapping_, 300, pwElement(7), 700, 0)});
   ASSERT_TRUE(s.runUntil([&] { return status() == Pseudowire::connectorUp; }, 2.0));
   auto const* session = ss();

   B::Buf emptyList;
   B::put16(emptyList, 1);
   B::Buf macs;
   B::append(macs, {0x00, 0x11, 0x22, 0x33, 0x44, 0x55});
   B::Buf macWithdraw = B::tlv(tlvAddressList_, emptyList);
   B::append(macWithdraw, B::fecTlv({pwElement(7, 0, 5, false, 0)}));
   B::append(macWithdraw, B::tlv(0x0404, macs, true));
   B::Buf flushAll = B::tlv(tlvAddressList_, emptyList);
   B::append(flushAll, B::fecTlv({pwElement(7, 0, 5, false, 0)}));
   B::append(flushAll, B::tlv(0x0404, {}, true));
   fake.send({B::msg(LdpAddressWithdraw_, 301, macWithdraw), B::msg(LdpAddressWithdraw_, 302, flushAll),
              B::msg(LdpAddress_, 303, B::tlv(tlvAddressList_, emptyList))});
   // A Withdraw of a pseudowire that this side doesn't have is released.
   fake.send({pwLabelMsg(LdpLabelWithdraw_, 304, pwElement(99), 990)});
   ASSERT_TRUE(sentCount(LdpLabelRelease_, 1));
   auto rel = sent(LdpLabelRelease_).back();
   EXPECT_EQ(99u, rel->ldpFecTlvParser()->pwFwdEqvCls(0).fwdEqvClass().pwId().value());
   EXPECT_EQ(990u, rel->genLabelTlv()->label().value());

   // An IPv6 prefix gets Unsupported Address Family, and nothing is kept of
   // it, not even its IPv4 neighbour in the same message.
   B::Buf v6{0x02, 0x00, 0x02, 0x30, 0x20, 0x01, 0x0d, 0xb8, 0x00, 0x01};
   fake.send({B::labelMsg(LdpLabelMapping_, 305, {B::prefixElement(IpAddr(9, 9, 9, 9), 32), v6}, 800)});
   ASSERT_TRUE(fake.runUntil(
      [&] { return fake.rxCount(LdpNotification_, statusUnsupportedAddrFamily_) == 1; }, 2.0));
   fake.runFor(1.0);
   EXPECT_FALSE(b.status()->ldpFecConfigColl()->fecConfigFind(
      Mpls::FwdEqvClass(*Nolu::IpGenPrefix::fromString("9.9.9.9/32"))));
   EXPECT_FALSE(b.status()->ldpFecConfigColl()->fecConfigFind(
      Mpls::FwdEqvClass(*Nolu::IpGenPrefix::fromString("2001:db8:1::/48"))));

   // The session, its addresses and the pseudowire are as they were, and
   // the only Notification was the advisory one.
   EXPECT_EQ(stateOperational_, state());
   EXPECT_EQ(session, ss());
   EXPECT_TRUE(ss()->peerIntfIpHas(Nolu::IpGenAddr(IpAddr(10, 0, 0, 1))));
   EXPECT_EQ(Pseudowire::connectorUp, status());
   EXPECT_EQ(700u, response()->peerLabel().value());
   EXPECT_EQ(1u, fake.rxCount(LdpNotification_));
   EXPECT_EQ(1u, fake.rxCount(LdpLabelMapping_));
   EXPECT_EQ(0u, fake.rxCount(LdpLabelWithdraw_));
}

// A peer without the PW Status TLV withdraws its label: faults still go to
// it by Withdraw, since it showed that it doesn't read the TLV.
TEST_F(PwFake, WithdrawMethodOutlastsThePeersWithdraw) {
   pwRequestIs(b, "1.1.1.1", {.pwId = 7, .label = 5000});
   ASSERT_TRUE(sentCount(LdpLabelMapping_, 1));
   fake.send({pwLabelMsg(LdpLabelMapping_, 300, pwElement(7), 700)});
   ASSERT_TRUE(s.runUntil([&] { return status() == Pseudowire::connectorUp; }, 2.0));
   fake.send({pwLabelMsg(LdpLabelWithdraw_, 301, pwElement(7), 700)});
   ASSERT_TRUE(sentCount(LdpLabelRelease_, 1));
   ASSERT_TRUE(s.runUntil([&] { return status() == Pseudowire::connectorNoRemote; }, 2.0));
   fake.runFor(2.0);
   pwRequestIs(b, "1.1.1.1", {.pwId = 7, .label = 5000, .up = false});
   ASSERT_TRUE(sentCount(LdpLabelWithdraw_, 1));
   EXPECT_EQ(0u, fake.rxCount(LdpNotification_));
}

// A control word or PW type change moves the pseudowire to another FEC with
// the same label: the new mapping waits for the peer's Release of the old
// one, which may name the new FEC, and a peer that never releases holds it
// back for a bounded time only.
TEST_F(PwFake, FecChangeWaitsForTheReleaseOfTheOldMapping) {
   pwRequestIs(b, "1.1.1.1", {.pwId = 7, .label = 5000});
   ASSERT_TRUE(sentCount(LdpLabelMapping_, 1));
   fake.send({pwLabelMsg(LdpLabelMapping_, 300, pwElement(7), 700, 0)});
   ASSERT_TRUE(s.runUntil([&] { return status() == Pseudowire::connectorUp; }, 2.0));

   pwRequestIs(b, "1.1.1.1", {.pwId = 7, .label = 5000, .controlWord = true});
   ASSERT_TRUE(sentCount(LdpLabelWithdraw_, 1));
   EXPECT_FALSE(sent(LdpLabelWithdraw_).back()->ldpFecTlvParser()->pwFwdEqvCls(0)
                   .fwdEqvClass().controlWord());
   fake.runFor(0.5);
   EXPECT_EQ(1u, fake.rxCount(LdpLabelMapping_));
   // The Release names the new FEC and the old label: it answers the
   // Withdraw, and the new mapping follows.
   fake.send({pwLabelMsg(LdpLabelRelease_, 301, pwElement(7, 1500, 5, true), 5000)});
   ASSERT_TRUE(sentCount(LdpLabelMapping_, 2));
   auto m = sent(LdpLabelMapping_).back();
   EXPECT_TRUE(m->ldpFecTlvParser()->pwFwdEqvCls(0).fwdEqvClass().controlWord());
   EXPECT_EQ(5000u, m->genLabelTlv()->label().value());
   fake.send({pwLabelMsg(LdpLabelWithdraw_, 302, pwElement(7), 700)});
   fake.send({pwLabelMsg(LdpLabelMapping_, 303, pwElement(7, 1500, 5, true), 701, 0)});
   ASSERT_TRUE(s.runUntil([&] { return status() == Pseudowire::connectorUp; }, 2.0));
   fake.runFor(1.0);
   EXPECT_EQ(2u, fake.rxCount(LdpLabelMapping_));

   // Another PW type, and a peer that never releases the old mapping.
   pwRequestIs(b, "1.1.1.1",
               {.pwId = 7, .label = 5000, .type = Pseudowire::pwTypeEthernetTagged_,
                .controlWord = true});
   ASSERT_TRUE(sentCount(LdpLabelWithdraw_, 2));
   ASSERT_TRUE(sentCount(LdpLabelMapping_, 3));
   m = sent(LdpLabelMapping_).back();
   EXPECT_EQ(Pseudowire::pwTypeEthernetTagged_, m->ldpFecTlvParser()->pwFwdEqvCls(0).fwdEqvClass().pwType());
   EXPECT_EQ(5000u, m->genLabelTlv()->label().value());
   // The old FEC session is given up rather than kept for ever.
   fake.runFor(1.0);
   EXPECT_EQ(1u, b.status()->localPwFecSessionConfigColl()->fecSessionConfigSize());
   EXPECT_EQ(stateOperational_, state());
}

// The operator's view of a pseudowire: the peer's FEC for the pw-id shown
// whether it matches ours or not, flags only while the peer advertises, the
// reason apart from the status, the withdraw handshakes and the counts.
TEST_F(PwFake, OperatorViewShowsWhatThePeerAdvertisesAndWhy) {
   Host::PseudowireConfig pw;
   pw.neighbor = IpAddr(1, 1, 1, 1);
   pw.pwId = 7;
   auto view = [&] { return Host::pwView(*b.agent(), pw); };
   auto until = [&](int st) {
      return s.runUntil([&] { return view().status == st; }, 3.0);
   };
   pwRequestIs(b, "1.1.1.1", {.pwId = 7, .label = 5000});
   ASSERT_TRUE(until(Pseudowire::connectorNoRemote));
   Host::PwView v = view();
   EXPECT_EQ(stateOperational_, v.sessionState);
   EXPECT_EQ("advertised", v.localLabelState);
   EXPECT_FALSE(v.remote);
   EXPECT_EQ("no remote", v.statusText);
   EXPECT_EQ("the peer advertised no PW FEC for pw-id 7", v.reason);
   EXPECT_EQ(1u, v.messagesTx[LdpLabelMapping_]);

   // Not forwarding, then the label withdrawn: no flags left behind.
   fake.send({pwLabelMsg(LdpLabelMapping_, 400, pwElement(7), 600, 1)});
   ASSERT_TRUE(until(Pseudowire::connectorRemoteNotForwarding));
   v = view();
   ASSERT_TRUE(v.remote);
   EXPECT_EQ(600u, v.remote->label);
   EXPECT_EQ(1u, v.remoteStatusFlags);
   EXPECT_EQ("the peer signals not-forwarding", v.reason);
   fake.send({pwLabelMsg(LdpLabelWithdraw_, 401, pwElement(7), 600)});
   ASSERT_TRUE(sentCount(LdpLabelRelease_, 1));
   ASSERT_TRUE(s.runUntil([&] { return !view().remote; }, 3.0));
   EXPECT_EQ(Pseudowire::connectorNoRemote, view().status);

   // Another PW type with another MTU: both shown, the status names the type.
   fake.send({pwLabelMsg(LdpLabelMapping_, 402, pwElement(7, 9000, 4), 701, 0)});
   ASSERT_TRUE(until(Pseudowire::connectorPwTypeMismatch));
   v = view();
   ASSERT_TRUE(v.remote);
   EXPECT_EQ(Pseudowire::pwTypeEthernetTagged_, v.remote->pwType);
   EXPECT_EQ(701u, v.remote->label);
   EXPECT_EQ(9000u, v.remote->mtu);
   EXPECT_EQ("held", v.remote->state);
   EXPECT_TRUE(v.mtuMismatch);
   EXPECT_EQ("PW type mismatch", v.statusText);
   EXPECT_EQ("PW type: ours ethernet, the peer's ethernet-vlan; MTU mismatch: ours 1500, "
             "the peer's 9000",
             v.reason);
   // Another control word.
   fake.send({pwLabelMsg(LdpLabelWithdraw_, 403, pwElement(7, 9000, 4), 701),
              pwLabelMsg(LdpLabelMapping_, 404, pwElement(7, 1500, 5, true), 702, 0)});
   ASSERT_TRUE(until(Pseudowire::connectorControlWordMismatch));
   ASSERT_TRUE(s.runUntil([&] { return view().fecSessions.size() == 2; }, 3.0));
   v = view();
   EXPECT_TRUE(v.remote->controlWord);
   EXPECT_EQ(702u, v.remote->label);
   EXPECT_EQ("control word: ours off, the peer's on", v.reason);
   // The matching FEC beside it is the one shown; up, and nothing to explain.
   fake.send({pwLabelMsg(LdpLabelMapping_, 405, pwElement(7), 703, 0)});
   ASSERT_TRUE(until(Pseudowire::connectorUp));
   v = view();
   EXPECT_EQ(703u, v.remote->label);
   EXPECT_FALSE(v.remote->controlWord);
   EXPECT_EQ("up", v.statusText);
   EXPECT_EQ("", v.reason);
   EXPECT_EQ(2u, v.messagesRx[LdpLabelMapping_]);  // 702 and 703, still held

   // Our label changes: the old one's Withdraw waits for the Release.
   pwRequestIs(b, "1.1.1.1", {.pwId = 7, .label = 5001});
   ASSERT_TRUE(sentCount(LdpLabelWithdraw_, 1));
   ASSERT_TRUE(until(Pseudowire::connectorNoLocalMapping));
   v = view();
   EXPECT_EQ("withdrawn, release awaited", v.localLabelState);
   EXPECT_EQ("our Withdraw of label 5000 awaits the peer's Release", v.reason);
   fake.send({pwLabelMsg(LdpLabelRelease_, 406, pwElement(7), 5000)});
   ASSERT_TRUE(until(Pseudowire::connectorUp));
   v = view();
   EXPECT_EQ(1u, v.messagesTx[LdpLabelWithdraw_]);
   EXPECT_EQ(1u, v.messagesRx[LdpLabelRelease_]);
   EXPECT_EQ(2u, v.messagesTx[LdpLabelMapping_]);
   // A Release that no Withdraw asked for takes the mapping back until the
   // peer asks again.
   fake.send({pwLabelMsg(LdpLabelRelease_, 407, pwElement(7), 5001)});
   ASSERT_TRUE(until(Pseudowire::connectorNoLocalMapping));
   EXPECT_EQ("released by the peer", view().localLabelState);
   EXPECT_EQ("the peer released our label and asked for none since", view().reason);
   fake.send({pwLabelMsg(LdpLabelRequest_, 408, pwElement(7), 0)});
   ASSERT_TRUE(until(Pseudowire::connectorUp));

   // Shut down in withdraw mode: the label goes, and that reads as admin down.
   pw.shutdown = true;
   pw.pwStatusTlv = false;
   pwRequestIs(b, "1.1.1.1", {.pwId = 7, .label = 5001, .statusTlv = false, .up = false});
   ASSERT_TRUE(sentCount(LdpLabelWithdraw_, 2));
   fake.send({pwLabelMsg(LdpLabelRelease_, 409, pwElement(7), 5001)});
   ASSERT_TRUE(s.runUntil([&] { return view().localLabelState == "not advertised"; }, 3.0));
   v = view();
   EXPECT_EQ(Pseudowire::connectorNoLocalMapping, v.status);
   EXPECT_EQ("admin down", v.statusText);

   // A neighbour with no session at all.
   Host::PseudowireConfig other;
   other.neighbor = IpAddr(3, 3, 3, 3);
   other.pwId = 9;
   v = Host::pwView(*b.agent(), other);
   EXPECT_FALSE(v.status);
   EXPECT_EQ("no LDP session to 3.3.3.3", v.statusText);
   EXPECT_EQ(stateOperational_, state());
}

// Two agents with pseudowires to each other.
struct PwTwoAgents : TwoAgents {
   void SetUp() override {
      TwoAgents::SetUp();
      a.ldp();
      b.ldp();
      ASSERT_TRUE(s.runUntil([&] { return bothOperational(); }, 60.0));
   }
   int statusA(U32 pwId = 10) { return pwStatus(a, "2.2.2.2", pwId); }
   int statusB(U32 pwId = 10) { return pwStatus(b, "1.1.1.1", pwId); }
   bool bothUp() { return statusA() == Pseudowire::connectorUp && statusB() == Pseudowire::connectorUp; }
   bool both(int st) { return statusA() == st && statusB() == st; }
};

TEST_F(PwTwoAgents, RequestToResponseMismatchesFaultsAndRestarts) {
   pwRequestIs(a, "2.2.2.2", {.label = 1000});
   pwRequestIs(b, "1.1.1.1", {.label = 2000});
   ASSERT_TRUE(s.runUntil([&] { return bothUp(); }, 10.0));
   EXPECT_EQ(2000u, pwResponse(a, "2.2.2.2", 10)->peerLabel().value());
   EXPECT_EQ(1000u, pwResponse(b, "1.1.1.1", 10)->peerLabel().value());
   EXPECT_TRUE(a.status()->pwTargetConfigColl()->pwTargetHas(Nolu::IpGenAddr(IpAddr(2, 2, 2, 2))));

   // Each mismatch, told on both sides, and back up.
   pwRequestIs(b, "1.1.1.1", {.label = 2000, .type = Pseudowire::pwTypeEthernetTagged_});
   ASSERT_TRUE(s.runUntil([&] { return both(Pseudowire::connectorPwTypeMismatch); }, 10.0));
   pwRequestIs(b, "1.1.1.1", {.label = 2000, .controlWord = true});
   ASSERT_TRUE(s.runUntil([&] { return both(Pseudowire::connectorControlWordMismatch); }, 10.0));
   pwRequestIs(b, "1.1.1.1", {.label = 2000});
   ASSERT_TRUE(s.runUntil([&] { return bothUp(); }, 10.0));
   pwConfig(b)->ldpRequestDel(pwKey("1.1.1.1", 10));
   pwRequestIs(b, "1.1.1.1", {.pwId = 11, .label = 2001});
   ASSERT_TRUE(s.runUntil(
      [&] { return statusA() == Pseudowire::connectorNoRemote && statusB(11) == Pseudowire::connectorNoRemote; },
      10.0));
   // No label: nothing advertised.
   pwRequestIs(b, "1.1.1.1", {.pwId = 12});
   ASSERT_TRUE(
      s.runUntil([&] { return statusB(12) == Pseudowire::connectorNoLocalMapping; }, 10.0));
   pwConfig(b)->ldpRequestDel(pwKey("1.1.1.1", 11));
   pwConfig(b)->ldpRequestDel(pwKey("1.1.1.1", 12));
   ASSERT_TRUE(s.runUntil([&] { return !pwResponse(b, "1.1.1.1", 11); }, 10.0));
   pwRequestIs(b, "1.1.1.1", {.label = 2000});
   ASSERT_TRUE(s.runUntil([&] { return bothUp(); }, 10.0));

   // The peer's attachment circuit down: not forwarding, with its label.
   pwRequestIs(b, "1.1.1.1", {.label = 2000, .up = false});
   ASSERT_TRUE(
      s.runUntil([&] { return statusA() == Pseudowire::connectorRemoteNotForwarding; }, 10.0));
   EXPECT_EQ(2000u, pwResponse(a, "2.2.2.2", 10)->peerLabel().value());
   EXPECT_EQ(Pseudowire::connectorUp, statusB());
   pwRequestIs(b, "1.1.1.1", {.label = 2000});
   ASSERT_TRUE(s.runUntil([&] { return bothUp(); }, 10.0));

   // Our label changes; the peer follows.
   pwRequestIs(a, "2.2.2.2", {.label = 1100});
   ASSERT_TRUE(s.runUntil(
      [&] { return bothUp() && pwResponse(b, "1.1.1.1", 10)->peerLabel().value() == 1100; }, 10.0));

   // The session breaks and comes back; then LDP of the peer stops and starts.
   resetConnections();
   ASSERT_TRUE(s.runUntil([&] { return statusA() != Pseudowire::connectorUp; }, 10.0));
   ASSERT_TRUE(s.runUntil([&] { return bothUp(); }, 60.0));
   b.config()->enabledIs(false);
   ASSERT_TRUE(s.runUntil([&] { return statusA() != Pseudowire::connectorUp; }, 10.0));
   EXPECT_FALSE(pwResponse(b, "1.1.1.1", 10));
   b.config()->enabledIs(true);
   ASSERT_TRUE(s.runUntil([&] { return bothUp(); }, 60.0));
   EXPECT_EQ(1100u, pwResponse(b, "1.1.1.1", 10)->peerLabel().value());

   // The peer gives the pseudowire up: it withdraws, we release, no remote.
   pwConfig(b)->ldpRequestDel(pwKey("1.1.1.1", 10));
   ASSERT_TRUE(s.runUntil([&] { return statusA() == Pseudowire::connectorNoRemote; }, 10.0));
   EXPECT_FALSE(pwResponse(b, "1.1.1.1", 10));
   EXPECT_FALSE(b.status()->pwTargetConfigColl()->pwTargetHas(Nolu::IpGenAddr(IpAddr(1, 1, 1, 1))));
   s.runFor(1.0);
   EXPECT_EQ(0u, b.status()->localPwFecSessionConfigColl()->fecSessionConfigSize());
   EXPECT_EQ(0u, a.status()->remotePwFecSessionConfigColl()->fecSessionConfigSize());
}

TEST_F(PwTwoAgents, StatusByWithdrawWhenOneSideHasNoStatusTlv) {
   pwRequestIs(a, "2.2.2.2", {.label = 1000});
   pwRequestIs(b, "1.1.1.1", {.label = 2000, .statusTlv = false});
   ASSERT_TRUE(s.runUntil([&] { return bothUp(); }, 10.0));
   // The side with the TLV learns that its peer has none.
   auto const* pwc = a.status()->pwStatusColl()->status(pwKey("2.2.2.2", 10)).ptr();
   ASSERT_TRUE(pwc);
   EXPECT_EQ(pwStatusMethodWithdraw_, pwc->pwStatusMethod());
   // Its fault withdraws its label: the peer has no label from it.
   pwRequestIs(a, "2.2.2.2", {.label = 1000, .up = false});
   ASSERT_TRUE(s.runUntil(
      [&] {
         auto const* r = pwResponse(b, "1.1.1.1", 10);
         return r && r->status() != Pseudowire::connectorUp && !r->peerLabel().isValid();
      },
      10.0));
   EXPECT_EQ(Pseudowire::connectorNoLocalMapping, statusA());
   pwRequestIs(a, "2.2.2.2", {.label = 1000});
   ASSERT_TRUE(s.runUntil([&] { return bothUp(); }, 10.0));
}

}  // namespace

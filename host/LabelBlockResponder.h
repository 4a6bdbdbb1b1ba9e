#pragma once
// Stands in for the MPLS agent on a plain host: answers a client's request for
// a block of labels (Mpls::ClientLabelRequest, as the LDP agent writes it at
// mpls/config/labelRequest/ldp) with a block of the configured dynamic range
// in Mpls::Api::Status. The block is keyed by the client's name. The top of
// the range (pseudowireLabelCount) is kept for the pseudowires' labels, which
// the host gives out itself.
#include <string>

#include "entities/EntityTypes.h"
#include "runtime/vek/Reactor.h"

namespace Host {

class LabelBlockResponderSm : public Vek::Sm {
 public:
   static constexpr U32 defaultRangeBase = 100000;
   static constexpr U32 defaultRangeSize = 16384;

   static Vek::Ptr<LabelBlockResponderSm> LabelBlockResponderSmIs(
      std::string const& client, Vek::Ptr<Mpls::ClientLabelRequest const> const& request,
      Vek::Ptr<Mpls::Api::Status> const& status) {
      return Vek::makeSm<LabelBlockResponderSm>(client, request, status);
   }
   LabelBlockResponderSm(std::string client,
                         Vek::Ptr<Mpls::ClientLabelRequest const> const& request,
                         Vek::Ptr<Mpls::Api::Status> const& status);

   // The dynamic range that blocks come from; a request answered already is
   // answered again from the new range.
   void rangeIs(U32 base, U32 size);
   U32 rangeBase() const { return base_; }
   U32 rangeSize() const { return size_; }

   void handleInitialized();
   void handleLabelRequest(Vek::String const& id);
   void handleRequestMember(Vek::String const& id);

 private:
   void answer();
   std::string client_;
   Vek::Ptr<Mpls::Api::Status> status_;
   U32 base_ = defaultRangeBase;
   U32 size_ = defaultRangeSize;
   Vek::Input<Mpls::ClientLabelRequest::Reactor<LabelBlockResponderSm>> request_;
   Vek::ReactorColl<Vek::String,
                    Mpls::LabelRequest::MemberReactor<LabelBlockResponderSm, Vek::String>>
      member_;
};

}  // namespace Host

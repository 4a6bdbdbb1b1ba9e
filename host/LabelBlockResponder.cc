#include "host/LabelBlockResponder.h"

#include "host/Config.h"

namespace Host {

namespace {
// The one request that the LDP agent makes.
constexpr char kMainRequest[] = "main";
}  // namespace

LabelBlockResponderSm::LabelBlockResponderSm(
   std::string client, Vek::Ptr<Mpls::ClientLabelRequest const> const& request,
   Vek::Ptr<Mpls::Api::Status> const& status)
   : client_(std::move(client)), status_(Vek::validPtr(status)) {
   request_.init(this, Vek::validPtr(request));
   handleInitialized();
}

void LabelBlockResponderSm::handleInitialized() {
   for (auto it = request_.get()->labelRequestIter(); it; ++it) {
      Vek::String id = it.key();
      member_.is(id, this, it.value(), id, &LabelBlockResponderSm::handleRequestMember);
   }
   initialized_ = true;
   answer();
}

void LabelBlockResponderSm::rangeIs(U32 base, U32 size) {
   if (base == base_ && size == size_) return;
   base_ = base;
   size_ = size;
   status_->dynamicLabelRangeBaseIs(base_);
   status_->dynamicLabelRangeSizeIs(size_);
   answer();
}

void LabelBlockResponderSm::handleLabelRequest(Vek::String const& id) {
   if (!initialized_) return;
   auto r = request_.get()->labelRequest(id);
   if (r)
      member_.is(id, this, r, id, &LabelBlockResponderSm::handleRequestMember);
   else
      member_.del(id);
   answer();
}

void LabelBlockResponderSm::handleRequestMember(Vek::String const&) {
   if (!initialized_) return;
   answer();
}

void LabelBlockResponderSm::answer() {
   status_->dynamicLabelRangeBaseIs(base_);
   status_->dynamicLabelRangeSizeIs(size_);
   auto r = request_.get()->labelRequest(kMainRequest);
   if (!r || size_ == 0) {
      status_->labelBlockAllocationDel(client_);
      return;
   }
   // LDP is the range's only client on this host: its block is the whole
   // range below the labels kept for pseudowires at its top, whatever size it
   // asked for, so that a larger configured range labels more FECs.
   auto block = status_->labelBlockAllocationIs(client_);
   block->baseIs(base_);
   block->sizeIs(size_ - pseudowireLabelCount(size_));
}

}  // namespace Host

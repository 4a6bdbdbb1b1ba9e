#include "entities/EntityTypes.h"

#include "runtime/ombra/Ombra.h"

namespace Ldp {

void entityTypesRegister() {
   using Ombra::typeRegister;
   typeRegister<Vek::Dir>("Vek::Dir");
   typeRegister<L3::Config>("L3::Config");
   typeRegister<LdpConfigColl>("Ldp::LdpConfigColl");
   typeRegister<LdpProtoConfigColl>("Ldp::LdpProtoConfigColl");
   typeRegister<LdpEnabledVrfColl>("Ldp::LdpEnabledVrfColl");
   typeRegister<LdpStatusColl>("Ldp::LdpStatusColl");
   typeRegister<LdpAgentStatus>("Ldp::LdpAgentStatus");
   typeRegister<Mpls::ClientLabelRequest>("Mpls::ClientLabelRequest");
   typeRegister<Mpls::Api::Status>("Mpls::Api::Status");
   typeRegister<Mpls::Hardware::Status>("Mpls::Hardware::Status");
   typeRegister<LdpLinkReadyStatusVrfColl>("Ldp::LdpLinkReadyStatusVrfColl");
   typeRegister<Mpls::Config>("Mpls::Config");
   typeRegister<Routing::Config>("Routing::Config");
   typeRegister<Acl::AclListConfig>("Acl::AclListConfig");
   typeRegister<Acl::Config>("Acl::Config");
   typeRegister<Acl::Input::Config>("Acl::Input::Config");
   typeRegister<Ip::AllVrfStatusLocal>("Ip::AllVrfStatusLocal");
   typeRegister<Ip::Status>("Ip::Status");
   typeRegister<Bridging::Config>("Bridging::Config");
   typeRegister<Pseudowire::PseudowireLdpConfig>("Pseudowire::PseudowireLdpConfig");
   typeRegister<Pseudowire::PseudowireLdpStatus>("Pseudowire::PseudowireLdpStatus");
   typeRegister<Tunnel::TunnelTable::TunnelRib>("Tunnel::TunnelTable::TunnelRib");
   typeRegister<Interface::AllIntfStatusDir>("Interface::AllIntfStatusDir");
   typeRegister<Interface::AllIntfStatusLocalDir>("Interface::AllIntfStatusLocalDir");
   typeRegister<Interface::DeviceIntfStatusDir>("Interface::DeviceIntfStatusDir");
   typeRegister<KernelNetInfo::Status>("KernelNetInfo::Status");
   typeRegister<Tesh::Fib::RouteStatus>("Tesh::Fib::RouteStatus");
   typeRegister<Tesh::Fib::ForwardingStatus>("Tesh::Fib::ForwardingStatus");
   typeRegister<Tesh::Fib::FecModeStatus>("Tesh::Fib::FecModeStatus");
   typeRegister<LdpP2mpInternalLabelBindingTableColl>("Ldp::LdpP2mpInternalLabelBindingTableColl");
   typeRegister<LdpTesh::LdpLabelBindingTable>("Ldp::LdpTesh::LdpLabelBindingTable");
   typeRegister<LdpP2mpLabelBindingTable>("Ldp::LdpP2mpLabelBindingTable");
   typeRegister<Mpls::LfibStatus>("Mpls::LfibStatus");
}

}  // namespace Ldp

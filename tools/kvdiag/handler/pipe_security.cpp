#include "handler/pipe_security.h"

namespace kvdiag {

OwnAccountOnly::OwnAccountOnly() : attributes_{sizeof attributes_, &descriptor_, FALSE} {
    DWORD networkSize = sizeof network_.bytes;
    PACL acl = reinterpret_cast<PACL>(acl_);
    ok_ = kv::AccountOf(GetCurrentProcess(), own_) &&
          CreateWellKnownSid(WinNetworkSid, nullptr, network_.get(), &networkSize) &&
          InitializeAcl(acl, sizeof acl_, ACL_REVISION) &&
          AddAccessDeniedAce(acl, ACL_REVISION, FILE_ALL_ACCESS, network_.get()) &&
          AddAccessAllowedAce(acl, ACL_REVISION, FILE_ALL_ACCESS, own_.get()) &&
          InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION) &&
          SetSecurityDescriptorDacl(&descriptor_, TRUE, acl, FALSE);
}

}  // namespace kvdiag

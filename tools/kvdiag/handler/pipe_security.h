// The crash handler's pipe admits this process's account only: an access
// list with one entry granting it everything and one refusing network logons.
// Remote clients are refused by the pipe itself (PIPE_REJECT_REMOTE_CLIENTS).
// Only Windows enforces it: Wine accepts every client whatever the list says.
#pragma once

#include <windows.h>

#include "crash/pipe_account.h"

namespace kvdiag {

class OwnAccountOnly {
public:
    OwnAccountOnly();
    // Null when the account or the list could not be made (the pipe must then not be created).
    SECURITY_ATTRIBUTES* get() { return ok_ ? &attributes_ : nullptr; }

private:
    kv::AccountSid own_;
    kv::AccountSid network_;
    alignas(8) BYTE acl_[512];
    SECURITY_DESCRIPTOR descriptor_;
    SECURITY_ATTRIBUTES attributes_;
    bool ok_ = false;
};

}  // namespace kvdiag

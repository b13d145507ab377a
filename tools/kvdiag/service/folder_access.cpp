#include "service/folder_access.h"

#include <aclapi.h>
#include <sddl.h>

#include <string.h>

#include <algorithm>

#include "platform/folder_listing.h"
#include "platform/owned_handle.h"

namespace kvdiag {

namespace {

enum class Role { Folder, File, Above };

// The rights that let an account change what the service uses: for a folder,
// put, remove or rename what is in it; for a file, change it; for a folder
// above, rename or remove its child. Changing an access list or an owner
// gives them all.
DWORD RightsThatCount(Role role) {
    const DWORD always = WRITE_DAC | WRITE_OWNER | GENERIC_ALL;
    switch (role) {
        case Role::Folder:
            return always | DELETE | FILE_ADD_FILE | FILE_ADD_SUBDIRECTORY | FILE_DELETE_CHILD | GENERIC_WRITE;
        case Role::File:
            return always | DELETE | FILE_WRITE_DATA | FILE_APPEND_DATA | GENERIC_WRITE;
        case Role::Above:
            return always | DELETE | FILE_DELETE_CHILD;
    }
    return always;
}

std::string AccountName(PSID sid) {
    char name[256], domain[256];
    DWORD nameSize = sizeof name, domainSize = sizeof domain;
    SID_NAME_USE use;
    if (LookupAccountSidA(nullptr, sid, name, &nameSize, domain, &domainSize, &use))
        return domain[0] ? std::string(domain) + "\\" + name : name;
    char* text = nullptr;
    std::string result = ConvertSidToStringSidA(sid, &text) ? text : "an unknown account";
    if (text) LocalFree(text);
    return result;
}

// The account this process runs as: an administrator, since only one gets
// this far (the service manager let it create a service).
bool IsInstaller(PSID sid) {
    static BYTE user[SECURITY_MAX_SID_SIZE + sizeof(TOKEN_USER)];
    static const bool known = [] {
        kv::platform::KernelHandle token;
        DWORD size = 0;
        return OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put()) &&
               GetTokenInformation(token.get(), TokenUser, user, sizeof user, &size);
    }();
    return known && EqualSid(sid, reinterpret_cast<TOKEN_USER*>(user)->User.Sid);
}

bool IsTrusted(PSID sid) {
    static const char kTrustedInstaller[] = "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
    if (IsWellKnownSid(sid, WinBuiltinAdministratorsSid) || IsWellKnownSid(sid, WinLocalSystemSid) || IsInstaller(sid))
        return true;
    char* text = nullptr;
    const bool installer = ConvertSidToStringSidA(sid, &text) && !strcmp(text, kTrustedInstaller);
    if (text) LocalFree(text);
    return installer;
}

// The accounts other than the trusted ones that hold a right that counts on
// path, joined with ", "; "" when there are none. Deny entries are not
// weighed: a folder that needs one to be safe is refused all the same.
Failure OthersWhoCanWrite(const std::string& path, Role role, std::string& who) {
    PSID owner = nullptr;
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD status = GetNamedSecurityInfoA(path.c_str(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                                               &owner, nullptr, &dacl, nullptr, &descriptor);
    if (status != ERROR_SUCCESS) return Failure("cannot read the access list of " + path, status);
    const DWORD counted = RightsThatCount(role);
    std::vector<std::string> names;
    const auto add = [&](PSID sid) {
        const std::string name = AccountName(sid);
        if (!IsTrusted(sid) && std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    };
    if (!dacl) {
        names.push_back("Everyone (it has no access list)");
    } else {
        bool ownerRightsListed = false;
        for (DWORD i = 0; i < dacl->AceCount; ++i) {
            ACE_HEADER* header = nullptr;
            if (!GetAce(dacl, i, reinterpret_cast<void**>(&header))) continue;
            if ((header->AceType != ACCESS_ALLOWED_ACE_TYPE && header->AceType != ACCESS_ALLOWED_CALLBACK_ACE_TYPE) ||
                (header->AceFlags & INHERIT_ONLY_ACE))
                continue;
            const auto* ace = reinterpret_cast<ACCESS_ALLOWED_ACE*>(header);
            PSID sid = const_cast<DWORD*>(&ace->SidStart);
            // CREATOR OWNER only shapes what is created; OWNER RIGHTS are the owner's.
            if (IsWellKnownSid(sid, WinCreatorOwnerSid)) continue;
            const bool ownerRights = IsWellKnownSid(sid, WinCreatorOwnerRightsSid);
            ownerRightsListed |= ownerRights;
            if (ace->Mask & counted) add(ownerRights && owner ? owner : sid);
        }
        // An owner may always change the access list, unless OWNER RIGHTS say otherwise.
        if (owner && !ownerRightsListed) add(owner);
    }
    LocalFree(descriptor);
    who.clear();
    for (const std::string& name : names) who += (who.empty() ? "" : ", ") + name;
    return {};
}

Failure Problem(const std::string& path, Role role) {
    std::string who;
    if (Failure failure = OthersWhoCanWrite(path, role, who)) return failure;
    if (who.empty()) return {};
    const char* what = role == Role::File ? "file" : "folder";
    return Failure(std::string(what) + " " + path + (role == Role::Above ? " (above the one used)" : "") + " can be " +
                   (role == Role::Above ? "changed" : "written") + " by " + who +
                   ", not only by administrators and SYSTEM");
}

Failure AboveProblem(std::string path) {
    for (size_t slash = path.find_last_of('\\'); slash != std::string::npos && slash > 2; slash = path.find_last_of('\\')) {
        path.resize(slash);  // up to the folder below the drive's root, which cannot be renamed
        if (Failure problem = Problem(path, Role::Above)) return problem;
    }
    return {};
}

std::string FullPath(const std::string& path) {
    char full[MAX_PATH];
    const DWORD n = GetFullPathNameA(path.c_str(), sizeof full, full, nullptr);
    std::string result = n && n < sizeof full ? full : path;
    while (result.size() > 3 && result.back() == '\\') result.pop_back();
    return result;
}

}  // namespace

Failure ServiceFolderProblem(const std::string& given, bool withPrograms) {
    const std::string folder = FullPath(given);
    const DWORD attributes = GetFileAttributesA(folder.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY))
        return Failure("the folder " + folder + " is not there");
    // A junction or link would lead the service to another folder than the one checked.
    if (attributes & FILE_ATTRIBUTE_REPARSE_POINT) return Failure("the folder " + folder + " is a link to another place");
    Failure problem = Problem(folder, Role::Folder);
    if (!problem && withPrograms) {
        kv::platform::VisitFolder(folder, "*", [&](const WIN32_FIND_DATAA& found) {
            const char* dot = strrchr(found.cFileName, '.');
            if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) && dot && (!_stricmp(dot, ".exe") || !_stricmp(dot, ".dll")))
                problem = Problem(folder + "\\" + found.cFileName, Role::File);
            return !problem;
        });
    }
    return problem ? problem : AboveProblem(folder);
}

Failure ServiceFileProblem(const std::string& given) {
    const std::string file = FullPath(given);
    const DWORD attributes = GetFileAttributesA(file.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return Failure("the file " + file + " is not there");
    if (attributes & FILE_ATTRIBUTE_REPARSE_POINT) return Failure("the file " + file + " is a link to another place");
    Failure problem = Problem(file, Role::File);
    if (!problem) problem = Problem(file.substr(0, file.find_last_of('\\')), Role::Folder);
    return problem ? problem : AboveProblem(file.substr(0, file.find_last_of('\\')));
}

DWORD CreateProtectedFolder(const std::string& given) {
    const std::string folder = FullPath(given);
    std::vector<std::string> missing;
    for (std::string at = folder; GetFileAttributesA(at.c_str()) == INVALID_FILE_ATTRIBUTES;) {
        missing.push_back(at);
        const size_t slash = at.find_last_of('\\');
        if (slash == std::string::npos || slash < 3) break;
        at.resize(slash);
    }
    // Protected (P): nothing inherited from above, where users may create folders.
    static const char kOwned[] = "O:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)", kAnyOwner[] = "D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";
    for (auto level = missing.rbegin(); level != missing.rend(); ++level) {
        DWORD error = 0;
        // Administrators as owner; an account that may not name it as owner keeps its own.
        for (const char* sddl : {kOwned, kAnyOwner}) {
            SECURITY_ATTRIBUTES attributes{sizeof attributes, nullptr, FALSE};
            if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(sddl, SDDL_REVISION_1, &attributes.lpSecurityDescriptor, nullptr))
                return GetLastError();
            error = CreateDirectoryA(level->c_str(), &attributes) ? 0 : GetLastError();
            LocalFree(attributes.lpSecurityDescriptor);
            if (error != ERROR_INVALID_OWNER) break;
        }
        if (error && error != ERROR_ALREADY_EXISTS) return error;
    }
    return 0;
}

}  // namespace kvdiag

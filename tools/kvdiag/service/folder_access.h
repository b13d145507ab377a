// Who may change what the forwarding service runs and keeps. The service runs
// as LocalSystem: anyone who can replace its program, a DLL beside it, its
// CA file or its state can act as LocalSystem (or make it trust another
// collector). Only Administrators, SYSTEM, TrustedInstaller and the
// administrator installing it may.
//
// Written for Windows' access checks. Wine does not enforce access lists: it
// shows a file's Unix mode bits as one (owner, SYSTEM, Everyone), so under
// Wine a folder is refused only when it is writable for others by its mode,
// and the restricted list kvdiag gives its state folder shows as a folder
// Everyone cannot read; that nobody else can then write to it only Windows proves.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "common/failure.h"

namespace kvdiag {

// What must be safe before the service is installed: the program folder
// (with every .exe and .dll in it), the state folder, and files it reads
// (--ca, --ini). Each is checked with the folders above it (a user who can
// rename a folder above can put another tree in its place). No failure when
// all are safe; otherwise what is wrong, naming the folder or file and who can write it.
Failure ServiceFolderProblem(const std::string& folder, bool withPrograms);
Failure ServiceFileProblem(const std::string& file);

// Creates folder and the missing folders above it, each with an access list
// of Administrators and SYSTEM only, inherited by what is made in them and
// not by what is above. Returns 0 or the error.
DWORD CreateProtectedFolder(const std::string& folder);

}  // namespace kvdiag

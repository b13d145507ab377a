#include "service/windows_service.h"

#include <windows.h>
#include <stdio.h>

#include "common/console_text.h"
#include "forward/forward_options.h"
#include "commands/forward_command.h"
#include "platform/command_line.h"
#include "platform/module_path.h"
#include "service/folder_access.h"

namespace kvdiag {

namespace {

constexpr DWORD kStopWaitMs = 30000;

struct ScHandle {
    SC_HANDLE handle;
    explicit ScHandle(SC_HANDLE h) : handle(h) {}
    ~ScHandle() {
        if (handle) CloseServiceHandle(handle);
    }
    ScHandle(const ScHandle&) = delete;
    ScHandle& operator=(const ScHandle&) = delete;
};

// The service starts in the system folder: paths given relative to where
// install ran are made full.
std::vector<std::string> WithFullPaths(std::vector<std::string> args) {
    for (size_t i = 0; i + 1 < args.size(); ++i) {
        if (args[i] != "--ca" && args[i] != "--state" && args[i] != "--ini") continue;
        char full[MAX_PATH];
        const DWORD n = GetFullPathNameA(args[i + 1].c_str(), sizeof full, full, nullptr);
        if (n && n < sizeof full) args[i + 1] = full;
        ++i;
    }
    return args;
}

// The running service's state, shared with the control handler.
SERVICE_STATUS_HANDLE statusHandle = nullptr;
SERVICE_STATUS status{};
HANDLE stopEvent = nullptr;
std::vector<std::string> serviceArgs;

void Report(DWORD state, DWORD exitCode = 0, DWORD waitHintMs = 0) {
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0;
    status.dwWin32ExitCode = exitCode ? ERROR_SERVICE_SPECIFIC_ERROR : NO_ERROR;
    status.dwServiceSpecificExitCode = exitCode;
    status.dwWaitHint = waitHintMs;
    ++status.dwCheckPoint;
    SetServiceStatus(statusHandle, &status);
}

DWORD WINAPI OnControl(DWORD control, DWORD, void*, void*) {
    if (control == SERVICE_CONTROL_STOP || control == SERVICE_CONTROL_SHUTDOWN) {
        Report(SERVICE_STOP_PENDING, 0, kStopWaitMs);
        SetEvent(stopEvent);
        return NO_ERROR;
    }
    return control == SERVICE_CONTROL_INTERROGATE ? NO_ERROR : ERROR_CALL_NOT_IMPLEMENTED;
}

void WINAPI ServiceMain(DWORD, char**) {
    statusHandle = RegisterServiceCtrlHandlerExA(kServiceName, OnControl, nullptr);
    if (!statusHandle) return;
    stopEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    // A state folder removed since the install is made again as install made
    // it: under ProgramData, users could otherwise create files in it.
    ForwardOptions options;
    if (!ParseForwardOptions(serviceArgs, options) && GetFileAttributesA(options.stateFolder.c_str()) == INVALID_FILE_ATTRIBUTES)
        CreateProtectedFolder(options.stateFolder);
    Report(SERVICE_RUNNING);
    const int code = RunForwardCommand(serviceArgs, stopEvent);
    Report(SERVICE_STOPPED, DWORD(code));
}

// A LocalSystem service may run and keep only what administrators alone can
// change: its program folder, the files it reads, its state folder (made
// here with such an access list when it is not there). "" when all are so.
Failure UnsafeServicePlaces(const ForwardOptions& options, const std::string& program) {
    Failure problem = ServiceFolderProblem(program.substr(0, program.find_last_of('\\')), true);
    for (const std::string* file : {&options.caFile, &options.ini})
        if (!problem && !file->empty()) problem = ServiceFileProblem(*file);
    if (problem) return problem;
    if (GetFileAttributesA(options.stateFolder.c_str()) == INVALID_FILE_ATTRIBUTES) {
        const DWORD error = CreateProtectedFolder(options.stateFolder);
        if (error) return Failure("cannot create the state folder " + options.stateFolder, error);
    }
    return ServiceFolderProblem(options.stateFolder, false);
}

}  // namespace

int InstallForwardService(const std::vector<std::string>& forwardArgs) {
    ForwardOptions options;
    const Failure wrong = ParseForwardOptions(forwardArgs, options);
    if (wrong || options.status) {
        ReportFailure(options.status ? Failure("--status is not a service") : wrong);
        fprintf(stderr, "usage: kvdiag service install %s\n", kForwardUsage);
        return 2;
    }
    const std::string self = kv::platform::ModulePath(nullptr);
    if (self.empty()) return ReportFailure(Failure::FromLastError("cannot find kvdiag's own path"));
    using kv::platform::QuoteArgument;
    std::string commandLine = QuoteArgument(self) + " service run forward";
    for (const std::string& arg : WithFullPaths(forwardArgs)) commandLine += " " + QuoteArgument(arg);
    ScHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
    if (!manager.handle)
        return ReportFailure(Failure::FromLastError("cannot open the service manager").Note("run as an administrator"));
    if (const Failure problem = UnsafeServicePlaces(options, self))
        return ReportFailure(Failure("the service is not installed: " + problem.text()));
    // LocalSystem, started at boot whether or not anyone logs in.
    ScHandle service(CreateServiceA(manager.handle, kServiceName, "KvDebugHelp log forwarder", SERVICE_ALL_ACCESS,
                                    SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, SERVICE_ERROR_NORMAL,
                                    commandLine.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
    if (!service.handle)
        return ReportFailure(GetLastError() == ERROR_SERVICE_EXISTS
                                 ? Failure("the service is installed already; kvdiag service remove takes it away")
                                 : Failure::FromLastError("cannot create the service"));
    SERVICE_DESCRIPTIONA description{const_cast<char*>("Forwards the KvDebugHelp logs of this station to the syslog collector.")};
    ChangeServiceConfig2A(service.handle, SERVICE_CONFIG_DESCRIPTION, &description);
    // A forwarder that dies is started again a little later; its cursors let it go on.
    SC_ACTION restart{SC_ACTION_RESTART, 10000};
    SERVICE_FAILURE_ACTIONSA failure{86400, nullptr, nullptr, 1, &restart};
    ChangeServiceConfig2A(service.handle, SERVICE_CONFIG_FAILURE_ACTIONS, &failure);
    printf("installed service %s: %s\nit starts at the next boot, or now with: net start %s\n", kServiceName,
           commandLine.c_str(), kServiceName);
    return 0;
}

int RemoveForwardService() {
    ScHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager.handle)
        return ReportFailure(Failure::FromLastError("cannot open the service manager").Note("run as an administrator"));
    ScHandle service(OpenServiceA(manager.handle, kServiceName, SERVICE_STOP | SERVICE_QUERY_STATUS | DELETE));
    if (!service.handle)
        return ReportFailure(GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST ? Failure("the service is not installed")
                                                                            : Failure::FromLastError("cannot open the service"));
    SERVICE_STATUS state{};
    if (ControlService(service.handle, SERVICE_CONTROL_STOP, &state)) {
        // Waits for the forwarder to save its cursors and end.
        for (DWORD waited = 0; waited < kStopWaitMs && QueryServiceStatus(service.handle, &state) &&
                               state.dwCurrentState != SERVICE_STOPPED;
             waited += 100)
            Sleep(100);
        if (state.dwCurrentState != SERVICE_STOPPED) ReportFailure(Failure("the service did not stop in time"));
    }
    if (!DeleteService(service.handle)) return ReportFailure(Failure::FromLastError("cannot remove the service"));
    printf("removed service %s\n", kServiceName);
    return 0;
}

int RunForwardService(const std::vector<std::string>& forwardArgs) {
    serviceArgs = forwardArgs;
    SERVICE_TABLE_ENTRYA table[] = {{const_cast<char*>(kServiceName), ServiceMain}, {nullptr, nullptr}};
    if (StartServiceCtrlDispatcherA(table)) return int(status.dwServiceSpecificExitCode);
    return ReportFailure(GetLastError() == ERROR_FAILED_SERVICE_CONTROLLER_CONNECT
                             ? Failure("service run is started by the service manager; use kvdiag forward in a console")
                             : Failure::FromLastError("the service dispatcher did not start"));
}

}  // namespace kvdiag

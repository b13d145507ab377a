#include "syslog_collector.h"

#include <winsock2.h>

#include "text_checks.h"

#ifndef KV_COLLECTOR_SCRIPT
#error KV_COLLECTOR_SCRIPT names tests/forward/collector.sh
#endif

namespace kvtest {

namespace {

// Wine's own export that maps a Windows path to the Unix one.
std::string UnixPath(const std::string& path) {
    using ToUnix = char*(CDECL*)(const WCHAR*);
    const auto toUnix = reinterpret_cast<ToUnix>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "wine_get_unix_file_name"));
    if (!toUnix) return {};
    const std::wstring wide(path.begin(), path.end());
    char* unix = toUnix(wide.c_str());
    std::string result = unix ? unix : "";
    HeapFree(GetProcessHeap(), 0, unix);
    return result;
}

}  // namespace

unsigned short FreePort() {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int size = sizeof address;
    unsigned short port = 0;
    if (bind(s, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
        getsockname(s, reinterpret_cast<sockaddr*>(&address), &size) == 0)
        port = ntohs(address.sin_port);
    closesocket(s);
    WSACleanup();
    return port;
}

SyslogCollector::SyslogCollector(std::string kind, std::string options)
    : unixDir_(UnixPath(dir_.path())), port_(FreePort()), kind_(std::move(kind)), options_(std::move(options)) {
    Start();
}

SyslogCollector::~SyslogCollector() { Stop(); }

bool SyslogCollector::RunScript(const std::string& arguments) {
    const std::string command = arguments.substr(0, arguments.find(' '));
    const std::string done = dir_ / (command + ".done");
    DeleteFileA(done.c_str());
    std::string commandLine = "Z:\\bin\\bash " KV_COLLECTOR_SCRIPT " " + arguments;
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (unixDir_.empty() ||
        !CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &startup, &process))
        return false;
    if (process.hProcess) CloseHandle(process.hProcess);
    if (process.hThread) CloseHandle(process.hThread);
    for (int waited = 0; waited < 600 && !FileExists(done); ++waited) Sleep(100);
    return ReadFileText(done).compare(0, 1, "0") == 0;
}

bool SyslogCollector::Start() {
    running_ = RunScript("start " + unixDir_ + " " + std::to_string(port_) + " " + kind_ + " " + options_);
    return running_;
}

bool SyslogCollector::Restart(const std::string& options) {
    options_ = options;
    return Stop() && Start();
}

bool SyslogCollector::Stop() {
    if (!running_) return true;
    running_ = !RunScript("stop " + unixDir_);
    return !running_;
}

std::string SyslogCollector::url() const {
    return (kind_.compare(0, 3, "ng-") == 0 ? "tcp" : kind_) + "://127.0.0.1:" + std::to_string(port_);
}

std::vector<std::string> SyslogCollector::Messages() const { return ReadLines(dir_ / "messages.log"); }

std::vector<std::string> SyslogCollector::WaitForMessages(size_t count, DWORD timeoutMs) const {
    std::vector<std::string> messages = Messages();
    for (DWORD waited = 0; messages.size() < count && waited < timeoutMs; waited += 200) {
        Sleep(200);
        messages = Messages();
    }
    return messages;
}

}  // namespace kvtest

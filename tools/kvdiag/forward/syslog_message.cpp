#include "forward/syslog_message.h"

#include <windows.h>
#include <stdio.h>

namespace kvdiag {

namespace {

constexpr int kFacilityUser = 1;

// Log files are written in the ANSI code page.
std::string AnsiToUtf8(const std::string& text) {
    if (text.empty()) return text;
    const int wide = MultiByteToWideChar(CP_ACP, 0, text.data(), int(text.size()), nullptr, 0);
    if (wide <= 0) return text;
    std::wstring w(size_t(wide), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text.data(), int(text.size()), &w[0], wide);
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, w.data(), wide, nullptr, 0, nullptr, nullptr);
    std::string utf8(size_t(bytes > 0 ? bytes : 0), '\0');
    if (bytes > 0) WideCharToMultiByte(CP_UTF8, 0, w.data(), wide, &utf8[0], bytes, nullptr, nullptr);
    return utf8;
}

// A header field: printable US-ASCII without blanks, at most maxLength, "-" when empty.
std::string HeaderField(const std::string& text, size_t maxLength) {
    std::string field;
    for (char c : text.substr(0, maxLength)) field += (c > 32 && c < 127) ? c : '_';
    return field.empty() ? "-" : field;
}

// An SD-NAME: printable US-ASCII but '=', ']', '"' and blanks, at most 32.
std::string SdName(const std::string& text) {
    std::string name;
    for (char c : text.substr(0, 32)) name += (c > 32 && c < 127 && c != '=' && c != ']' && c != '"') ? c : '_';
    return name;
}

std::string EscapeControls(const std::string& text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (unsigned char c : text) {
        if ((c < 32 && c != '\n') || c == 127) {
            char octal[8];
            snprintf(octal, sizeof octal, "#%03o", c);
            escaped += octal;
        } else {
            escaped += char(c);
        }
    }
    return escaped;
}

// A structured-data parameter value escapes '"', '\' and ']'; line ends and
// other control characters become #ooo as in the text.
std::string ParamValue(const std::string& text) {
    std::string value;
    for (char c : AnsiToUtf8(text)) {
        if (c == '"' || c == '\\' || c == ']') value += '\\';
        value += c;
    }
    std::string escaped = EscapeControls(value);
    for (size_t at; (at = escaped.find('\n')) != std::string::npos;) escaped.replace(at, 1, "#012");
    return escaped;
}

}  // namespace

std::string SyslogMessage(const SyslogRecord& r, const std::string& hostName) {
    std::string message = "<" + std::to_string(kFacilityUser * 8 + r.severity) + ">1 " + r.stamp + " " +
                          HeaderField(hostName, 255) + " " + HeaderField(r.appName, 48) + " " +
                          HeaderField(r.procId, 128) + " " + HeaderField(r.msgId, 32) + " ";
    for (const SyslogRecord::Element& e : r.data) {
        message += "[" + SdName(e.id);
        for (const auto& [name, value] : e.params) message += " " + SdName(name) + "=\"" + ParamValue(value) + "\"";
        message += "]";
    }
    if (r.data.empty()) message += "-";
    if (!r.text.empty()) message += " " + EscapeControls(AnsiToUtf8(r.text));
    return message;
}

std::string MachineName() {
    char name[256];
    DWORD size = sizeof name;
    if (GetComputerNameExA(ComputerNameDnsHostname, name, &size) && size) return name;
    size = sizeof name;
    return GetComputerNameA(name, &size) ? name : "-";
}

}  // namespace kvdiag

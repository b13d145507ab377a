// MultiByteHelper: wide/ANSI conversion with the ANSI code page, and tokenising.
#include <windows.h>

#include "KvUtil.h"

KvString MultiByteHelper::WideStringToCharString(const KvWString& text) {
    const int n = WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, nullptr, 0, nullptr, nullptr);
    if (n <= 0) return KvString();
    KvString buffer(size_t(n), '\0');
    WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, &buffer[0], n, nullptr, nullptr);
    // Up to the first zero: text after an embedded null character is lost.
    return KvString(buffer.c_str());
}

KvWString MultiByteHelper::CharStringToWideString(const KvString& text) {
    const int n = MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, nullptr, 0);
    if (n <= 0) return KvWString();
    KvWString buffer(size_t(n), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, &buffer[0], n);
    return KvWString(buffer.c_str());
}

const std::list<KvWString>* MultiByteHelper::Tokenize(const KvWString& text, const KvWString& delimiters) {
    std::list<KvWString>* tokens = nullptr;
    try {
        tokens = new std::list<KvWString>();
        size_t start = text.find_first_not_of(delimiters, 0);
        size_t end = text.find_first_of(delimiters, start);
        while (start != KvWString::npos || end != KvWString::npos) {
            tokens->push_back(text.substr(start, end - start));
            start = text.find_first_not_of(delimiters, end);
            end = text.find_first_of(delimiters, start);
        }
        return tokens;
    } catch (...) {
        FreeTokenList(tokens);
        return nullptr;
    }
}

void MultiByteHelper::FreeTokenList(const std::list<KvWString>* list) { delete list; }

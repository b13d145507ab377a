// KvUtil.h - file and folder utilities, wide/ANSI conversion and tokenising,
// and the starting of registered tools and command lines.
#pragma once

#include <windows.h>

#include "KvExport.h"

// 1 when the tool's key below the product root key has a non-empty command.
KVDH_C_API int ToolIsRegistered(const char* toolName);
// Starts a registered tool with its macros expanded; a Win32 error code (0: started).
KVDH_C_API int StartRegisteredTool(const char* toolName);
// Starts a program through the shell; with parameters null the command is
// split into program and parameters. 1 when a process was started.
KVDH_C_API int ExecuteCommand(const char* command, const char* parameters, const char* directory,
                              unsigned long timeout);
// A registered tool's command, as registered (expanded 0) or as it would start
// (expanded non-zero: macros and carets replaced), and its working folder
// (empty when none is registered; folder may be null). Both buffers are
// cleared first. Returns the command's length, -1 when a buffer is too small
// (nothing copied), -2 when the tool has no command.
KVDH_C_API int GetRegisteredToolCommand(const char* toolName, int expanded, char* command, unsigned commandSize,
                                        char* folder, unsigned folderSize);

#ifdef __cplusplus
#include <wtypes.h>
#include <stdint.h>
#include <stdlib.h>

#include <list>
#include <new>
#include <string>
#include <vector>

// Attribute classes of SetFileAttrib / GetFileAttrib. Only the exact words
// 0x21, 0x22 and 0x20 are recognised; everything else is FA_OTHER.
enum FILEATTRIB { FA_READONLY = 0, FA_HIDDEN = 1, FA_NORMAL = 2, FA_OTHER = 3 };

// Files and folders with ANSI paths of at most MAX_PATH characters. Every
// member returns 1 for success and 0 for failure and never throws. Strings are
// handed back through char*&: the caller's previous string is released with
// free() and replaced by a malloc() copy, which the caller frees.
// An object is not thread-safe; separate objects are independent.
class KVDH_API CDirFunctions {
public:
    CDirFunctions();
    CDirFunctions(const CDirFunctions& other);
    CDirFunctions& operator=(const CDirFunctions& other);
    virtual ~CDirFunctions();

    int GetCurrentDir(char*& out);
    int GetSystemDir(char*& out);
    int GetWinDir(char*& out);

    // FindFirstFileA: wildcards match, and a file counts as well as a folder.
    int FileExist(const char* path);
    int DirExist(const char* path);
    // 1 when the directory bit is set; a missing path also answers 1.
    int IsDirectory(const char* path);

    // Replaces everything from the first dot of the whole path with ext.
    int ChangeExtension(const char* path, char*& out, const char* ext);
    int ExtractFileName(const char* path, char*& out);

    // Fill the file or sub-folder list of dir (empty: the current folder) and
    // return its size; items are fetched 1-based.
    int GetFilesDir(const char* dir, int fullPath);
    int GetItemFile(int index, char*& out);
    int GetSubDirs(const char* dir, int fullPath);
    int GetItemDir(int index, char*& out);

    int GetFileSize(const char* path, unsigned long& size);
    int GetFileAttrib(const char* path, int& attrib);
    int SetFileAttrib(const char* path, FILEATTRIB attrib);

    int CreateDir(const char* path);
    int SetCurrentDir(const char* path);
    int ChangeFileName(const char* from, const char* to);
    // relative: name is taken below the host executable's folder.
    int KillFileName(const char* name, int relative);
    int KillDir(const char* dir);
    int CopyFileName(const char* src, const char* dst, int overwrite);
    int MoveFileName(const char* src, const char* dstDir);
    // Occurrences of text (overlapping ones too), or -1 when the file cannot be opened.
    int StringCountInFile(const char* file, const char* text, int caseSensitive, int relative);
    int AppendFileName(const char* src, const char* dst);
    int WriteToFileName(const char* path, const char* text);

    // "<folder>\<name>YYYYMMDD" (UTC date) into out. A folder that is the very
    // pointer theEmptyText answers true and leaves out untouched.
    static bool CombineAndTimestamp(const char* folder, const char* name, char* out, unsigned int outSize);

    // The library's shared empty text.
    static const char* const theEmptyText;

private:
    int HasExtension(const char* name);
    int FillList(std::vector<BSTR>& list, const char* dir, int fullPath, bool folders);
    int FetchItem(const std::vector<BSTR>& list, int index, char*& out);
    int CopyTarget(const char* src, const char* dst, std::string& target);
    void CopyFrom(const CDirFunctions& other);

    WIN32_FIND_DATAA findData;
    HANDLE findHandle;  // no longer used; kept, as the layout of an exported class must be
    char workPath[MAX_PATH];
    char moduleDir[MAX_PATH];
    std::vector<BSTR> fileList;
    std::vector<BSTR> dirList;
};

namespace Korvan {

// Strings whose memory comes from the C run-time heap shared by the library
// and its hosts, so either side may release a string the other made.
template <class T>
struct StringAllocator {
    using value_type = T;

    StringAllocator() noexcept = default;
    template <class U>
    StringAllocator(const StringAllocator<U>&) noexcept {}

    T* allocate(std::size_t n) {
        if (n > std::size_t(PTRDIFF_MAX) / sizeof(T)) throw std::bad_alloc();
        void* p = malloc(n * sizeof(T));
        if (!p) throw std::bad_alloc();
        return static_cast<T*>(p);
    }
    void deallocate(T* p, std::size_t) noexcept { free(p); }
};

template <class T, class U>
bool operator==(const StringAllocator<T>&, const StringAllocator<U>&) noexcept { return true; }
template <class T, class U>
bool operator!=(const StringAllocator<T>&, const StringAllocator<U>&) noexcept { return false; }

}  // namespace Korvan

using KvString = std::basic_string<char, std::char_traits<char>, Korvan::StringAllocator<char>>;
using KvWString = std::basic_string<wchar_t, std::char_traits<wchar_t>, Korvan::StringAllocator<wchar_t>>;

// Conversion between wide text and ANSI text of the system code page, and
// splitting of wide text into tokens.
class KVDH_API MultiByteHelper {
public:
    MultiByteHelper& operator=(const MultiByteHelper&) = default;
    MultiByteHelper& operator=(MultiByteHelper&&) = default;

    static KvString WideStringToCharString(const KvWString& text);
    static KvWString CharStringToWideString(const KvString& text);
    // A new list of the non-empty tokens between delimiters, or null on
    // failure; release it with FreeTokenList.
    static const std::list<KvWString>* Tokenize(const KvWString& text, const KvWString& delimiters);
    static void FreeTokenList(const std::list<KvWString>* list);
};
#endif  // __cplusplus

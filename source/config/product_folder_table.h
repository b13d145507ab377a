// The product folders by code: the [KVEDIT] key that names each and what is
// appended to its value. The library's folder lookups, its self-check and
// kvdiag all read this one table.
#pragma once

#include "KvConfig.h"

namespace kv {

struct ProductFolderRow {
    int code;
    const char* key;
    const char* below;  // appended to the key's value
};

// Code 10 is a second code for the log folder, kept for older callers.
constexpr ProductFolderRow kProductFolders[] = {
    {KvFolderConfig, "CONFIG", ""},  {KvFolderLogs, "LOGS", ""},
    {KvFolderDriversLogs, "LOGS", "\\Drivers"}, {KvFolderBin, "BIN", ""},
    {KvFolderData, "DATA", ""},      {KvFolderUser, "USER", ""},
    {KvFolderStarter, "STARTER", ""}, {KvFolderLastDatabase, "LASTDATABASEPATH", ""},
    {KvFolderLogsAgain, "LOGS", ""}, {KvFolderRun, "RUN", ""},
};

// The row of a code; nullptr for an unknown one (4, 5, anything outside the table).
inline const ProductFolderRow* FindProductFolder(int code) {
    for (const ProductFolderRow& row : kProductFolders)
        if (row.code == code) return &row;
    return nullptr;
}

}  // namespace kv

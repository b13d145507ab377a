// The initialisation list: start-up functions run once each, in order.
#include <set>
#include <vector>

#include "KvConfig.h"

namespace {

struct InitRecord {
    int kind;  // always 1
    InitLibFunction function;
};

// Registration and the run belong to process start-up, on one thread.
std::vector<InitRecord>& InitList() {
    static std::vector<InitRecord> list;
    return list;
}

}  // namespace

void InitLib_Register(InitLibFunction function) {
    if (function) InitList().push_back(InitRecord{1, function});
}

int32_t InitLib_InitAll(void) {
    std::vector<InitRecord> list;
    list.swap(InitList());  // functions registered while running start a new list
    std::set<InitLibFunction> called;
    int32_t result = 0;
    for (const InitRecord& record : list) {
        if (!called.insert(record.function).second) continue;
        result = record.function();
        if (result != 0) break;
    }
    return result;
}

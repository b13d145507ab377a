// Reading a product folder from the INI file through the folder table.
#include "config/product_folders.h"

#include "config/product_folder_table.h"
#include "config/product_ini_reader.h"

namespace kv {

bool ReadProductFolder(int code, std::string& folder) {
    const ProductFolderRow* row = FindProductFolder(code);
    if (!row) return false;
    char value[kIniValueBytes];
    const size_t length = ReadProductIniKey("KVEDIT", row->key, value);
    if (length == 0) return false;
    folder.assign(value, length);
    folder += row->below;
    return true;
}

}  // namespace kv

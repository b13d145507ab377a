// A sample product installation in a private folder: <root>\Config\product.ini
// naming the product folders in its "KVEDIT" section, the way an installer
// lays it out. The folders themselves are not created: lookups create them.
#pragma once

#include <string>

#include "temp_dir.h"

namespace kvtest {

class ProductInstall {
public:
    ProductInstall();

    const std::string& root() const { return dir_.path(); }
    std::string iniPath() const { return dir_ / "Config\\product.ini"; }
    std::string logDir() const { return dir_ / "Logs"; }
    std::string Path(const std::string& relative) const { return dir_ / relative; }
    void SetValue(const std::string& section, const std::string& key, const std::string& value) const;

private:
    TempDir dir_{"kvinstall"};
};

}  // namespace kvtest

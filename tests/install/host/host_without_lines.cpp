#include "installed_host.cpp"

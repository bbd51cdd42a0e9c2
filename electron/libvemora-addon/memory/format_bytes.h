// A byte count as a short text such as "1.50 KB".
#pragma once

#include <string>

std::string formatBytes(long long bytes);

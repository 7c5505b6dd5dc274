#pragma once

#include <string>
#include <vector>

namespace kvosc {
int cmd_version();
int cmd_exports();
int cmd_demo();
int cmd_coders();
int cmd_code(bool encode, const char* coder, const std::vector<std::string>& args);
int cmd_verify(const char* coder, const char* dir);
int cmd_sample(const char* out);
int cmd_denoise(const std::vector<std::string>& args);
int cmd_alc(const std::vector<std::string>& args);
int cmd_aec(const std::vector<std::string>& args);
int demo_aec();  // short echo-canceller run of kvosc demo; the number of failures
}  // namespace kvosc

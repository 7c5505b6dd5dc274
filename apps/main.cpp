// kvosc: command-line front end of the library.
//   kvosc version                  version record and processor features
//   kvosc exports                  exports by family, with implemented counts
//   kvosc demo                     run every assembled coder on the built-in sample
//   kvosc encode|decode CODER [--option value ...] IN OUT   (audio: WAV or raw 16-bit)
//   kvosc verify CODER DIR
//   kvosc denoise [--level N] [--report] IN OUT  noise suppressor on the echo-path filter
//   kvosc alc IN OUT                  G.169 automatic level control
//   kvosc aec --far F --near N OUT    echo cancellation
//   kvosc sample OUT               write the built-in sample (8 kHz, 16-bit LE)
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"

namespace {

int usage(const char* why) {
    std::fprintf(stderr, "kvosc: %s (try: kvosc help)\n", why);
    return 2;
}

void help() {
    std::printf(
        "usage: kvosc version | exports | demo | coders\n"
        "       kvosc encode CODER [options] IN OUT | decode CODER [options] IN OUT\n"
        "       kvosc verify CODER DIR\n"
        "       kvosc denoise [--level 1-5] [--rate HZ] [--report] IN OUT\n"
        "       kvosc alc [--target DB] [--ceiling DB] [--max-gain DB] IN OUT\n"
        "       kvosc aec --far FAR --near NEAR OUT [--rate 8000|16000] [--tail MS]\n"
        "                 [--kind subband|subband16|dt16|fullband|fullband16] [--gain] [--report]\n"
        "       kvosc sample OUT\n");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usage("no command given");
    std::string cmd = argv[1];
    int rest = argc - 2;
    if (cmd == "help" || cmd == "--help" || cmd == "-h") {
        help();
        return 0;
    }
    if (cmd == "version")
        return rest == 0 ? kvosc::cmd_version() : usage("version takes no arguments");
    if (cmd == "exports")
        return rest == 0 ? kvosc::cmd_exports() : usage("exports takes no arguments");
    if (cmd == "demo") return rest == 0 ? kvosc::cmd_demo() : usage("demo takes no arguments");
    if (cmd == "coders")
        return rest == 0 ? kvosc::cmd_coders() : usage("coders takes no arguments");
    if (cmd == "encode" || cmd == "decode") {
        if (rest < 3) return usage((cmd + " needs CODER [options] IN OUT").c_str());
        return kvosc::cmd_code(cmd == "encode", argv[2], std::vector<std::string>(argv + 3, argv + argc));
    }
    if (cmd == "verify") {
        if (rest != 2) return usage("verify needs CODER DIR");
        return kvosc::cmd_verify(argv[2], argv[3]);
    }
    if (cmd == "sample") {
        if (rest != 1) return usage("sample needs OUT");
        return kvosc::cmd_sample(argv[2]);
    }
    if (cmd == "alc") return kvosc::cmd_alc(std::vector<std::string>(argv + 2, argv + argc));
    if (cmd == "aec") return kvosc::cmd_aec(std::vector<std::string>(argv + 2, argv + argc));
    if (cmd == "denoise")
        return kvosc::cmd_denoise(std::vector<std::string>(argv + 2, argv + argc));
    return usage(("unknown command '" + cmd + "'").c_str());
}

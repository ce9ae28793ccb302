// Fuzz target for the encoder board's NDI configuration file as the "full
// ndi" section reads it, maps it onto the API's keys and writes it back.
// Input: the file's content, a NUL, then the value of a write's "full ndi"
// member (for example {"channel name":"x"}).
// Checks: a write that was refused leaves the file byte for byte as it was
// (stored data is never lost); a write that was taken leaves a file the next
// read takes whole: it parses, holds an "ndi" object, and reads without
// failing. Runs in private namespaces (the file lives in the run's own /mnt).
#include <strings.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <string>

#include "cgi/output.h"
#include "fuzz_fakes.h"
#include "json/json_ctrl_func.h"
#include "support/owners.h"

namespace {

constexpr const char* kFile = "/mnt/fpga/ndi_config.json";

std::string slurp() {
    std::ifstream in(kFile, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string run(int (*dispatch)(const char*), const std::string& text) {
    OutputCapture capture;
    dispatch(text.c_str());
    return capture.text();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::install();
    fuzz::replies_from(nullptr, 0);
    setenv("REQUEST_METHOD", "GET", 1);
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t nul = input.find('\0');
    const std::string file = input.substr(0, nul).substr(0, 4096);
    const std::string member = nul == std::string::npos ? "{}" : input.substr(nul + 1).substr(0, 1500);
    mkdir("/mnt/fpga", 0755);
    std::ofstream(kFile, std::ios::binary | std::ios::trunc) << file;

    run(json_get_ctrl, R"({"full ndi":true})");
    run(json_get_ctrl, R"({"full ndi":{"device name":true,"multicast":true,"discovery server":true,"x":1}})");
    const std::string reply = run(json_set_ctrl, "{\"full ndi\":" + member + "}");
    const std::string after = slurp();
    // Taken when any "full ndi" member (in any spelling: the request may
    // name the section twice) answered with the file's tree.
    const size_t body = reply.find('{');
    JsonTree answer(body == std::string::npos ? nullptr : cJSON_Parse(reply.c_str() + body));
    bool taken = false;
    for (const cJSON* m = answer ? answer->child : nullptr; m != nullptr; m = m->next)
        taken = taken || (strcasecmp(m->string, "full ndi") == 0 && cJSON_IsObject(m));
    if (!taken) {
        if (after != file) __builtin_trap();  // refused, yet the file changed
        return 0;
    }
    JsonTree tree(cJSON_Parse(after.c_str()));
    if (after.size() >= 1024 || !cJSON_IsObject(cJSON_GetObjectItemCaseSensitive(tree.get(), "ndi")))
        __builtin_trap();  // taken, but the next read could not take it
    if (run(json_get_ctrl, R"({"full ndi":true})").find("\"status\":\ttrue") == std::string::npos)
        __builtin_trap();
    return 0;
}

#include "replay_main.h"

// A scratch directory of one test, removed with it, and whole-file reading.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

class Scratch {
public:
    explicit Scratch(const std::string& name)
        : dir_(std::filesystem::temp_directory_path() / (name + "." + std::to_string(::getpid()))) {
        std::filesystem::remove_all(dir_);
        std::filesystem::create_directories(dir_);
    }
    ~Scratch() { std::filesystem::remove_all(dir_); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    std::string path(const std::string& name = {}) const { return (dir_ / name).string(); }
    // Entries of the directory (or of its sub-directory `sub`) whose names start with `prefix`.
    int entries(const std::string& prefix = {}, const std::string& sub = {}) const {
        int n = 0;
        for (const auto& e : std::filesystem::directory_iterator(dir_ / sub))
            n += e.path().filename().string().rfind(prefix, 0) == 0;
        return n;
    }

private:
    std::filesystem::path dir_;
};

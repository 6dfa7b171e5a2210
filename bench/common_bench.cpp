#include <cstdint>
#include <filesystem>
#include <fnmatch.h>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include <openssl/evp.h>

#include "bench/side_by_side.h"
#include "common/directory_traversal.h"
#include "common/sm3_hash.h"
#include "common/string_utils.h"
#include "common/wildcard.h"
#include "label/label.h"

namespace fs = std::filesystem;

namespace {

constexpr int kBatch = 1000;

template <typename Work>
auto batchOf(Work work) {
    return [work] {
        for (int i = 0; i < kBatch; ++i) {
            benchmark::DoNotOptimize(work());
        }
    };
}

struct Pair {
    std::string pattern;
    std::string text;
};

const std::vector<Pair> kSimplePairs = {
    {"/usr/lib/x86_64-linux-gnu/libc.so.6", "/usr/lib/x86_64-linux-gnu/libc.so.6"},
    {"/var/log/*.log", "/var/log/apt/history.log"},
    {"*/bin/?sh", "/usr/local/bin/zsh"},
    {"/etc/*/conf.d/*.conf", "/etc/fonts/conf.d/10-hinting-slight.conf"},
    {"/home/*", "/srv/www/html/index.html"},
};

void wildcardAgainstFnmatch(benchmark::State& state) {
    const Pair& pair = kSimplePairs[static_cast<size_t>(state.range(0))];
    state.SetLabel(pair.pattern);
    compareSideBySide(
        state, 1.0, batchOf([&pair] { return wildcardMatch(pair.pattern, pair.text); }),
        batchOf([&pair] { return fnmatch(pair.pattern.c_str(), pair.text.c_str(), FNM_NOESCAPE); }));
}
BENCHMARK(wildcardAgainstFnmatch)->DenseRange(0, 4);

// What pattern length times text length costs: one comparison a cell.
bool matchByTable(const std::string& pattern, const std::string& text) {
    std::vector<char> row(text.size() + 1, 0);
    row[0] = 1;
    for (const char wanted : pattern) {
        char diagonal = row[0];
        row[0] = static_cast<char>(row[0] != 0 && wanted == '*');
        for (size_t i = 1; i < row.size(); ++i) {
            const char above = row[i];
            const bool matches = wanted == '*' ? above != 0 || row[i - 1] != 0
                                               : diagonal != 0 && (wanted == '?' || wanted == text[i - 1]);
            row[i] = static_cast<char>(matches);
            diagonal = above;
        }
    }
    return row[text.size()] != 0;
}

// Stars, each in front of a run of one letter, against a text of that letter: none
// matches, all try hard.
Pair starHeavy(int stars, size_t run) {
    Pair pair = {"", std::string(4096, 'a')};
    for (int i = 0; i < stars; ++i) {
        pair.pattern.append(1, '*').append(run, 'a');
    }
    pair.pattern += 'b';
    return pair;
}

void starHeavyAgainstProductOfLengths(benchmark::State& state) {
    const Pair pair = starHeavy(static_cast<int>(state.range(0)), static_cast<size_t>(state.range(1)));
    compareSideBySide(
        state, 1.0, [&pair] { benchmark::DoNotOptimize(wildcardMatch(pair.pattern, pair.text)); },
        [&pair] { benchmark::DoNotOptimize(matchByTable(pair.pattern, pair.text)); });
}
BENCHMARK(starHeavyAgainstProductOfLengths)->Args({1, 2048})->Args({10, 100})->Args({1000, 1});

void starHeavyAgainstFnmatch(benchmark::State& state) {
    const Pair pair = starHeavy(static_cast<int>(state.range(0)), static_cast<size_t>(state.range(1)));
    compareSideBySide(
        state, 1.0, [&pair] { benchmark::DoNotOptimize(wildcardMatch(pair.pattern, pair.text)); },
        [&pair] {
            benchmark::DoNotOptimize(fnmatch(pair.pattern.c_str(), pair.text.c_str(), FNM_NOESCAPE));
        });
}
BENCHMARK(starHeavyAgainstFnmatch)->Args({1, 2048})->Args({10, 100});

// 100,000 files in 1,000 directories.
class Tree {
 public:
    Tree() : root(fs::temp_directory_path() / ("common_bench." + std::to_string(getpid()))) {
        for (int directory = 0; directory < 1000; ++directory) {
            const fs::path path = root / std::to_string(directory / 32) / std::to_string(directory);
            fs::create_directories(path);
            for (int file = 0; file < 100; ++file) {
                const std::ofstream created(path / ("file-" + std::to_string(file) + ".txt"));
            }
        }
    }
    ~Tree() {
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    const fs::path root;
};

void traversalAgainstIterator(benchmark::State& state) {
    const Tree tree;
    compareSideBySide(
        state, 0.9,
        [&tree] {
            std::vector<std::string> found;
            traverseDirectory(tree.root.native(), found);
            benchmark::DoNotOptimize(found.data());
        },
        [&tree] {
            std::vector<std::string> found;
            for (const fs::directory_entry& entry : fs::recursive_directory_iterator(tree.root)) {
                const fs::file_type type = entry.symlink_status().type();
                if (type == fs::file_type::directory || type == fs::file_type::symlink ||
                    type == fs::file_type::regular) {
                    found.push_back(entry.path().native());
                }
            }
            benchmark::DoNotOptimize(found.data());
        });
}
BENCHMARK(traversalAgainstIterator)->Unit(benchmark::kMillisecond)->MinTime(3);

std::vector<std::string> shuffledPaths(bool relative) {
    std::vector<std::string> paths;
    uint64_t random = 88172645463325252;
    for (int i = 0; i < 100000; ++i) {
        random ^= random << 13;
        random ^= random >> 7;
        random ^= random << 17;
        const std::string path = "srv/data/" + std::to_string(random % 100) + "/project/" +
                                 std::to_string(random / 100 % 1000) + "/file-" + std::to_string(i);
        paths.push_back(relative ? path : "/" + path);
    }
    return paths;
}

void sortPathsAgainstSort(benchmark::State& state) {
    const std::vector<std::string> paths = shuffledPaths(state.range(0) != 0);
    std::vector<std::string> absolute;
    absolute.reserve(paths.size());
    for (const std::string& path : paths) {
        absolute.push_back(fs::absolute(path).native());
    }
    state.SetLabel(state.range(0) != 0 ? "relative paths" : "absolute paths");
    compareSideBySide(
        state, 1.5, [&paths] { benchmark::DoNotOptimize(sortPaths(paths)); },
        [&absolute] {
            std::vector<std::string> sorted = absolute;
            std::sort(sorted.begin(), sorted.end());
            benchmark::DoNotOptimize(sorted.data());
        });
}
BENCHMARK(sortPathsAgainstSort)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(3);

void sm3AgainstBareDigest(benchmark::State& state) {
    const std::string text(64, 'x');
    const auto bare = [&text] {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        EVP_MD_CTX* context = EVP_MD_CTX_new();
        EVP_DigestInit_ex(context, EVP_get_digestbyname("SM3"), nullptr);
        EVP_DigestUpdate(context, text.data(), text.size());
        EVP_DigestFinal_ex(context, digest, &length);
        EVP_MD_CTX_free(context);
        return digest[0];
    };
    compareSideBySide(state, 1.3, batchOf([&text] { return getSM3HashValue(text).size(); }), batchOf(bare));
}
BENCHMARK(sm3AgainstBareDigest);

// The time of 64 MB against that of twice 32 MB: 1 where the work is linear, 2 where it
// is quadratic. (Smaller parts would measure the page faults of large blocks.)
template <typename Work>
void compareSizes(benchmark::State& state, Work work) {
    std::string half;
    while (half.size() < (32U << 20U)) {
        half += "some words, and <more> of them;";
    }
    const std::string whole = half + half;
    compareSideBySide(
        state, 1.2, [&] { work(whole); },
        [&] {
            work(half);
            work(half);
        });
}

void replaceStringLinear(benchmark::State& state) {
    compareSizes(state, [](const std::string& text) {
        benchmark::DoNotOptimize(replaceString(text, "and", "as well as").size());
    });
}
BENCHMARK(replaceStringLinear)->Unit(benchmark::kMillisecond)->MinTime(3);

void splitStringLinear(benchmark::State& state) {
    compareSizes(state, [](const std::string& text) {
        std::vector<std::string> fields;
        splitString(text, ' ', fields);
        benchmark::DoNotOptimize(fields.data());
    });
}
BENCHMARK(splitStringLinear)->Unit(benchmark::kMillisecond)->MinTime(3);

Label fullLabel() {
    Label label;
    label.oid_.pkg_ = label.oid_.file_ = label.oid_.path_ = 0x0123456789abcdef;
    label.sid_ = label.creatorOid_ = label.oid_;
    label.tid_ = 0x01020304;
    label.inheritFlag_ = 7;
    return label;
}

// To stay below 100 ns each.
void labelEncode(benchmark::State& state) {
    const Label label = fullLabel();
    unsigned char value[81];
    for ([[maybe_unused]] auto iteration : state) {
        benchmark::DoNotOptimize(label.serializeToBuffer(value, sizeof(value)));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(labelEncode);

void labelDecode(benchmark::State& state) {
    unsigned char value[81];
    fullLabel().serializeToBuffer(value, sizeof(value));
    Label label;
    for ([[maybe_unused]] auto iteration : state) {
        benchmark::DoNotOptimize(label.deserializeFromBuffer(value, sizeof(value)));
    }
}
BENCHMARK(labelDecode);

}  // namespace

BENCHMARK_MAIN();

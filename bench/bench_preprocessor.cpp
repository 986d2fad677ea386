// Preprocessing a generated 4 MB source (a conditional every 20 lines, object
// and function-like macros) through Preprocessor against `cpp -P` on the same
// file, and the expansion of one long directive-free stretch (0.25 and 1 MB)
// against the literal pass rule done on one string. Ratios are ours / theirs
// in throughput; best of the runs.
#include "BenchTiming.h"

#include <cstring>
#include <random>
#include <tmain/parser/Preprocessor.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>

using namespace tarso::parser;
using namespace tarso::stream;

namespace {

const int MACROS = 40;

std::string definitions() {
    std::string s;
    for (int i = 0; i < MACROS; ++i)
        s += "#define M" + std::to_string(i) + " " + std::to_string(i * 7 - 50) + "\n";
    for (int i = 0; i < 8; ++i)
        s += "#define F" + std::to_string(i) + "(a, b) ((a) * M" + std::to_string(i) + " + (b))\n";
    return s;
}

// Text lines using the macros; a conditional every 20 lines when asked.
std::string body(size_t size, bool conditionals, unsigned seed) {
    std::mt19937 rng(seed);
    static const char* words[] = {"int", "value", "return", "x", "y", "+", "-",
                                  "*",   ";",     "=",      "(", ")", "{", "}"};
    std::string s;
    bool open = false;
    for (int line = 0; s.size() < size || open; ++line) {
        if (conditionals && line % 20 == 0 && (open = true))
            s += "#if M" + std::to_string(rng() % MACROS) + " > " + std::to_string((int)(rng() % 100) - 50) +
                 "\n";
        for (int k = 0; k < 8; ++k) {
            unsigned r = rng() % 10;
            if (r == 0)
                s += "M" + std::to_string(rng() % MACROS);
            else if (r == 1)
                s += "F" + std::to_string(rng() % 8) + "(x, M" + std::to_string(rng() % MACROS) + ")";
            else
                s += words[rng() % 14];
            s += ' ';
        }
        s += '\n';
        if (conditionals && line % 20 == 10 && !(open = false))
            s += "#else\nalternative line\n#endif\n";
    }
    return s;
}

std::string preprocess(const std::string& source) {
    ByteInputStream in(source.data(), (unsigned)source.size(), false);
    ByteOutputStream out(source.size() * 2, 1 << 20);
    out.open(ByteOutputStream::OM_WRITE);
    Preprocessor p;
    p.preprocess(&in, &out);
    return std::string((const char*)out.getBytes(), out.getSize());
}

bool isWord(char c) {
    return isalnum((unsigned char)c) || c == '_';
}

// The pass rule literally, for object-like macros with constant values.
std::string literal(const std::string& defs, std::string text) {
    std::vector<std::pair<std::string, std::string>> table;
    for (size_t p = 0; (p = defs.find("#define M", p)) != std::string::npos; ++p) {
        size_t n = defs.find(' ', p + 8), e = defs.find('\n', n);
        table.emplace_back(defs.substr(p + 8, n - p - 8), defs.substr(n + 1, e - n - 1));
    }
    std::sort(table.begin(), table.end());
    for (bool any = true; any;) {
        any = false;
        for (auto& m : table) {
            size_t p = 0;
            while ((p = text.find(m.first, p)) != std::string::npos && p + m.first.size() < text.size() &&
                   isWord(text[p + m.first.size()]))
                ++p;
            if (p == std::string::npos || (p > 0 && isalpha((unsigned char)text[p - 1])))
                continue;
            text.replace(p, m.first.size(), m.second);
            any = true;
        }
    }
    return text;
}

template <class F> double best(int runs, F f) {
    double t = 1e30;
    for (int i = 0; i < runs; ++i)
        t = std::min(t, timed(f));
    return t;
}

} // namespace

int main() {
    std::string source = definitions() + body(4u << 20, true, 1);
    const char* path = "/tmp/bench_preprocessor.c";
    FILE* f = fopen(path, "wb");
    fwrite(source.data(), 1, source.size(), f);
    fclose(f);
    double mb = source.size() / 1e6;
    double ours = best(3, [&] { preprocess(source); });
    double cpp =
        best(3, [&] { sh(std::string("cpp -P -undef -nostdinc -ffreestanding ") + path + " >/dev/null"); });
    printf("4 MB source, conditional every 20 lines: ours %.1f MB/s, cpp -P %.1f MB/s, ratio %.2f\n",
           mb / ours, mb / cpp, cpp / ours);

    // Object-like macros only, so that the literal version stays short.
    std::string defs;
    for (int i = 0; i < MACROS; ++i)
        defs += "#define M" + std::to_string(i) + " " + std::to_string(i * 7 - 50) + "\n";
    for (size_t size : {size_t(250000), size_t(1000000)}) {
        std::string text = body(size, false, 2);
        for (size_t p = 0; (p = text.find('F', p)) != std::string::npos;)
            text[p] = 'G';
        std::string expanded = preprocess(defs + text);
        double t = best(3, [&] { preprocess(defs + text); });
        printf("%.2f MB stretch: ours %.2f MB/s", size / 1e6, size / 1e6 / t);
        {
            std::string reference;
            double n = best(1, [&] { reference = literal(defs, text); });
            printf(", literal pass rule %.2f MB/s, ratio %.1f, same output: %s", size / 1e6 / n, n / t,
                   reference == expanded ? "yes" : "NO");
        }
        printf("\n");
    }
    remove(path);
    return 0;
}

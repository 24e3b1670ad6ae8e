// What the reliability tests have counted, for the table in docs/reliability.md.
#ifndef QELI2C_TESTS_FIGURES_H
#define QELI2C_TESTS_FIGURES_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>

// Prints one figure, and appends it as "name<TAB>count<TAB>unit" to the file that QELI2C_FIGURES
// names, if it is set. `name` is short and fixed ("faults.points"); each is given once a run.
inline void record_figure(const char *name, uint64_t count, const char *unit)
{
    std::printf("figure: %s %llu %s\n", name, static_cast<unsigned long long>(count), unit);
    const char *path = std::getenv("QELI2C_FIGURES");
    std::FILE *file = path != nullptr ? std::fopen(path, "a") : nullptr;
    if (file == nullptr)
        return;
    std::fprintf(file, "%s\t%llu\t%s\n", name, static_cast<unsigned long long>(count), unit);
    std::fclose(file);
}

#endif

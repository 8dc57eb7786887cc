// A program that does nothing: what any other needs at least.

#include <cstdio>

#include "bench/Wire.h"

int main() { std::puts(bench::toJson({{"rss_kib", bench::residentKib()}}).c_str()); }

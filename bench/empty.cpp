// A program that does nothing: what any other needs at least.

#include "bench/Wire.h"

int main() { bench::say(bench::toJson({{"rss_kib", bench::residentKib()}})); }

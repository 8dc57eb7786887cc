// Lives of clients from seeds: script/simulate builds it.

#include <sys/wait.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <iostream>
#include <iterator>
#include <memory>
#include <numeric>

#include "simulation/Worker.h"

using namespace koriva::simulation;

namespace {

struct Options {
  std::uint64_t seed = 1;
  std::uint64_t seeds = 1000;
  std::size_t steps = 300;
};

Steps allSteps(std::size_t count) {
  Steps steps(count);
  std::iota(steps.begin(), steps.end(), 0);
  return steps;
}

/// What was found, in as few steps as suffice.
void report(const Journal& found, const Options& options) {
  const auto seed = found.seed();
  const auto invariant = found.invariant();
  std::cout << "seed " << seed << " breaks: " << invariant << "\n  " << found.detail()
            << "\nLooking for the steps that matter..." << std::endl;
  const auto steps = shrink(seed, allSteps(options.steps), invariant);
  Worker last([&](Journal& journal) { live(seed, steps, journal); });
  if (last.wait()) {
    std::cout << "It does not break alone: what came before it in its process matters, from seed "
              << options.seed << " on" << std::endl;
    return;
  }
  const auto& journal = last.journal();
  std::cout << steps.size() << " of " << options.steps << " steps matter. The last life:\n"
            << journal.lastLines() << "seed " << seed << " breaks: " << journal.invariant()
            << "\n  " << journal.detail() << "\nAgain: script/simulate --seed " << seed
            << " --steps " << options.steps << std::endl;
}

int simulate(const Options& options) {
  const auto begun = std::chrono::steady_clock::now();
  // One lives the even seeds, one the odd ones.
  std::array<std::unique_ptr<Worker>, 2> workers;
  for (std::uint64_t i = 0; i < workers.size(); ++i) {
    workers[i] = std::make_unique<Worker>([&](Journal& journal) {
      const auto steps = allSteps(options.steps);
      for (std::uint64_t past = 0; past < options.seeds; ++past) {
        const auto seed = options.seed + past;
        if (seed % workers.size() == i) live(seed, steps, journal);
      }
    });
  }
  for (std::size_t left = workers.size(); left > 0; --left) {
    int status = 0;
    const auto process = ::wait(&status);
    const auto ended =
        std::ranges::find(workers, process, [](auto& each) { return each->process(); });
    if (ended == workers.end() || (*ended)->ended(status)) continue;
    for (auto& other : workers) {
      if (left > 1 && other != *ended && other->process() != process) other->kill();
    }
    report((*ended)->journal(), options);
    return 1;
  }
  std::uint64_t digest = 0;
  std::size_t lives = 0;
  std::uint64_t lines = 0;
  for (const auto& worker : workers) {
    digest += worker->journal().total();
    lives += worker->journal().lives();
    lines += worker->journal().lines();
  }
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begun;
  std::cout << lives << " lives in " << took.count() << " s, nothing found; " << lines
            << " lines of log, digest " << std::hex << digest << std::endl;
  if (options.seeds == 1) {
    for (const auto& worker : workers) std::cout << worker->journal().lastLines();
  }
  return 0;
}

}  // namespace

int main(int count, char** arguments) try {
  Options options;
  CLI::App app("Lives of clients, each from a seed, in search of what must not happen");
  app.add_option("--seed", options.seed, "The first seed; without --seeds the only one");
  auto* const seeds = app.add_option("--seeds", options.seeds, "How many seeds (1000)")
                          ->check(CLI::Range(1, 1'000'000'000));
  app.add_option("--steps", options.steps, "How many steps a life has (300)")
      ->check(CLI::Range(0, 1'000'000));
  CLI11_PARSE(app, count, arguments);
  if (app.count("--seed") != 0 && seeds->count() == 0) options.seeds = 1;
  return simulate(options);
} catch (const std::exception& error) {
  std::cerr << error.what() << std::endl;
  return 2;
}

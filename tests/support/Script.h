#pragma once

#include <boost/algorithm/string/finder.hpp>
#include <boost/algorithm/string/iter_find.hpp>
#include <boost/lexical_cast.hpp>
#include <chrono>
#include <functional>
#include <span>

#include "tests/support/Table.h"

namespace koriva::test {

/// A line `step argument` of a script. Steps with a colon, which belongs to their name, have a body
/// of further steps: one behind the colon, or the lines below that are indented further.
struct Step {
  std::string place;
  std::string name;
  std::string argument;
  std::vector<Step> body;
};

/// What is done under a heading `[name]`. An arrow is a step as well, though it may stand behind
/// another one: what is seen next have to be the lines of its argument, with ¶ between.
struct Script {
  std::string place;
  std::string name;
  std::vector<Step> steps;
};

inline Step stepOf(const std::string& place, const std::string& text) {
  const auto colon = text.starts_with("=> ") ? text.npos : (text + " ").find(": ");
  const auto head = text.substr(0, colon);
  const auto space = std::min(head.find(' '), head.size());
  Step step{place, head.substr(0, space), head.substr(std::min(space + 1, head.size())), {}};
  if (colon == text.npos) return step;
  step.name += ':';
  if (colon + 1 < text.size()) step.body = {stepOf(place, text.substr(colon + 2))};
  return step;
}

/// Takes the lines of one script or body.
inline std::vector<Step> takeSteps(std::span<const Line>& lines, std::size_t indent) {
  std::vector<Step> steps;
  while (!lines.empty() && lines.front().indent >= indent) {
    const auto& line = lines.front();
    lines = lines.subspan(1);
    if (line.indent > indent) {
      const bool goesOn = !steps.empty() && steps.back().name == "=>";
      if (!goesOn) refuse(line.place, "this is indented too far");
      steps.back().argument += std::string(line.indent - indent - 2, ' ') + line.text;
      continue;
    }
    const auto arrow = line.text.find(" => ");
    const bool isSeen = arrow != line.text.npos || line.text.starts_with("=> ");
    if (isSeen && indent > 2) refuse(line.place, "what is seen stands in no body");
    auto* step = &steps.emplace_back(stepOf(line.place, line.text.substr(0, arrow)));
    while (!step->body.empty()) step = &step->body.front();
    if (step->name.ends_with(':')) {
      step->body = takeSteps(lines, indent + 2);
      if (step->body.empty()) refuse(line.place, "nothing is indented below this");
    }
    if (arrow != line.text.npos) {
      steps.push_back(stepOf(line.place, line.text.substr(arrow + 1)));
    }
  }
  return steps;
}

inline std::vector<Script> readScripts(const std::vector<Line>& all) {
  std::vector<Script> scripts;
  for (std::span lines(all); !lines.empty();) {
    const auto& heading = lines.front();
    lines = lines.subspan(1);
    scripts.push_back({heading.place, headingOf(heading), takeSteps(lines, 2)});
    const bool isHeadingNext = lines.empty() || lines.front().indent == 0;
    if (!isHeadingNext) refuse(lines.front().place, "a step is indented by two spaces");
    if (scripts.back().steps.empty()) refuse(heading.place, "nothing is below this heading");
  }
  return scripts;
}

/// What is done, by name. A name that ends with " *" has an argument, others have none.
using Steps = std::map<std::string, std::function<void(const Step&)>>;

inline const auto& actionOf(const Steps& steps, const Step& step) {
  const auto known = steps.find(step.argument.empty() ? step.name : step.name + " *");
  if (known == steps.end()) refuse(step.place, "there is no step '" + step.name + "' like this");
  return known->second;
}

inline void checkNames(const Steps& steps, const std::vector<Step>& script) {
  for (const auto& step : script) {
    actionOf(steps, step);
    checkNames(steps, step.body);
  }
}

inline void perform(const Steps& steps, const std::vector<Step>& script) {
  for (const auto& step : script) actionOf(steps, step)(step);
}

/// Follows each script of a file with a `Play` of its own, which has the `steps` and tells what is
/// seen: the `next` line, for which it waits, and in the end the `rest`. Scripts whose name ends
/// with "(in time)" need one that knows time.
template <class Play>
void followScripts(const std::string& file) {
  for (const auto& [place, name, script] : readScripts(readLines(file))) {
    SCOPED_TRACE(place + ": " + name);
    const bool inTime = name.ends_with("(in time)");
    if (inTime && !Play::knowsTime()) continue;
    Play play(inTime);
    auto steps = play.steps;
    steps["=> *"] = [&](const Step& step) {
      std::vector<std::string> lines;
      for (const auto& line : boost::iter_split(lines, step.argument, boost::first_finder(" ¶ "))) {
        const auto seen = play.next();
        if (seen != line) throw std::runtime_error("'" + seen + "' was seen, not '" + line + "'");
      }
    };
    try {
      checkNames(steps, script);
      for (const auto& step : script) {
        located(step.place, [&] { actionOf(steps, step)(step); });
      }
      EXPECT_EQ(play.rest(), "");
    } catch (const std::exception& error) {
      ADD_FAILURE() << error.what();
    }
  }
}

inline std::size_t numberIn(const Step& step) {
  return boost::lexical_cast<std::size_t>(step.argument);
}

inline auto millisecondsIn(const Step& step) { return std::chrono::milliseconds(numberIn(step)); }

}  // namespace koriva::test

#include "Commands.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <sstream>
#include <utility>

#include "Complaint.h"
#include "Text.h"

namespace {

using Words = std::vector<std::string>;

constexpr std::size_t kAny = std::numeric_limits<std::size_t>::max();

template <class Number>
Number numberOf(std::string_view text, std::string_view what) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < 1) {
    throw Complaint("\"" + std::string(text) + "\" is not " + std::string(what));
  }
  return number;
}

std::string uinOf(const std::string& text) {
  return std::to_string(numberOf<std::int64_t>(text, "a user id, which is a number"));
}

Words uinsOf(Words::const_iterator from, Words::const_iterator to) {
  Words uins;
  std::transform(from, to, std::back_inserter(uins), uinOf);
  return uins;
}

/// The word that turns something off again, or none.
bool isOn(const Words& words) {
  if (words.empty() || words[0] == "on") return true;
  if (words[0] == "off") return false;
  throw Complaint("\"" + words[0] + "\" is neither \"on\" nor \"off\"");
}

/// Whether the only word that may be there is.
bool has(const Words& words, std::string_view word) {
  if (words.empty()) return false;
  if (words[0] != word)
    throw Complaint("\"" + words[0] + "\" is not \"" + std::string(word) + "\"");
  return true;
}

const std::string& urlOf(const std::string& text) {
  if (text.starts_with("http://") || text.starts_with("https://")) return text;
  throw Complaint("\"" + text +
                  "\" is not a web address: upload it elsewhere, and send where it is");
}

KRImage imageOf(const Words& words) {
  KRImage image{urlOf(words[0]), 0, 0, 0};
  if (words.size() < 2) return image;
  const std::string_view size = words[1];
  const std::size_t cross = std::min(size.find('x'), size.size());
  const std::string_view height = size.substr(std::min(cross + 1, size.size()));
  image.width = numberOf<std::uint64_t>(size.substr(0, cross), "a width in WIDTHxHEIGHT");
  image.height = numberOf<std::uint64_t>(height, "a height in WIDTHxHEIGHT");
  return image;
}

KRFile fileOf(const Words& words) {
  const std::string& url = urlOf(words[0]);
  const std::string name = url.substr(url.rfind('/') + 1);
  const std::size_t dot = name.rfind('.');
  if (name.empty()) throw Complaint("the address ends without a file's name");
  KRFile file{url, name, dot == name.npos ? "" : name.substr(dot + 1), 0};
  if (words.size() > 1) {
    file.size = static_cast<double>(numberOf<std::int64_t>(words[1], "a size in bytes"));
  }
  return file;
}

/// "Summer 1002 1003" is the group of that name with these members.
void createGroup(Chat& chat, const Words& words) {
  const auto isNumber = [](const std::string& word) {
    return std::all_of(word.begin(), word.end(), [](char c) { return c >= '0' && c <= '9'; });
  };
  const auto firstUin = std::find_if_not(words.rbegin(), words.rend(), isNumber).base();
  std::string name;
  for (auto it = words.begin(); it != firstUin; ++it) name += (name.empty() ? "" : " ") + *it;
  if (name.empty()) throw Complaint("a group needs a name that is more than a number");
  chat.createGroup(name, uinsOf(firstUin, words.end()));
}

void open(Chat& chat, const std::string& word) {
  if (word.starts_with('#')) {
    return chat.openNumber(numberOf<std::size_t>(word.substr(1), "a number of /list"));
  }
  chat.openUser(uinOf(word));
}

void history(Chat& chat, const Words& words) {
  constexpr std::int64_t page = 10;
  if (words.empty()) return chat.showHistory(page, false);
  if (words[0] == "more") return chat.showHistory(page, true);
  chat.showHistory(numberOf<std::int64_t>(words[0], "a number of messages, nor \"more\""), false);
}

}  // namespace

const std::vector<Commands::Command>& Commands::table() {
  using C = Commands&;
  using W = const Words&;
  static const std::vector<Command> commands = {
      {"/help", "", "show this", [](C c, W) { c.help(); }, 0},
      {"/list", "[PAGE]", "list your conversations",
       [](C c, W w) { c.chat_.list(w.empty() ? 1 : numberOf<std::int64_t>(w[0], "a page")); }, 1},
      {"/open", "UIN | #NUMBER", "open the conversation with a user, or one of the list",
       [](C c, W w) { open(c.chat_, w[0]); }, 1, 1},
      {"/history", "[COUNT | more]", "show the last messages, or those before",
       [](C c, W w) { history(c.chat_, w); }, 1},
      {"/image", "URL [WIDTHxHEIGHT]", "send an image",
       [](C c, W w) { c.chat_.sendImage(imageOf(w)); }, 2, 1},
      {"/file", "URL [SIZE]", "send a file", [](C c, W w) { c.chat_.sendFile(fileOf(w)); }, 2, 1},
      {"/typing", "[off]", "tell that you are typing, or no longer",
       [](C c, W w) { c.chat_.tellTyping(isOn(w)); }, 1},
      {"/pin", "[off]", "pin the conversation", [](C c, W w) { c.chat_.pin(isOn(w)); }, 1},
      {"/mute", "[off]", "mute the conversation", [](C c, W w) { c.chat_.mute(isOn(w)); }, 1},
      {"/create", "NAME [UIN...]", "create a group with these members",
       [](C c, W w) { createGroup(c.chat_, w); }, kAny, 1},
      {"/invite", "[UIN...]", "add members, or get a link by which others can join",
       [](C c, W w) {
         w.empty() ? c.chat_.createInvitation() : c.chat_.addMembers(uinsOf(w.begin(), w.end()));
       },
       kAny},
      {"/join", "LINK", "join a group", [](C c, W w) { c.chat_.join(w[0]); }, 1, 1},
      {"/leave", "", "leave the group, or delete the secret chat", [](C c, W) { c.chat_.leave(); },
       0},
      {"/block", "[UIN]", "block somebody in this conversation, or show whom you block",
       [](C c, W w) { w.empty() ? c.chat_.listBlocked() : c.chat_.block(uinOf(w[0]), true); }, 1},
      {"/unblock", "UIN", "the opposite", [](C c, W w) { c.chat_.block(uinOf(w[0]), false); }, 1,
       1},
      {"/call", "[video]", "call the others", [](C c, W w) { c.chat_.call(has(w, "video")); }, 1},
      {"/answer", "[no]", "accept the call, or decline",
       [](C c, W w) { c.chat_.answer(!has(w, "no")); }, 1},
      {"/hangup", "", "end the call", [](C c, W) { c.chat_.hangUp(); }, 0},
      {"/secret", "UIN | accept", "offer a secret chat, or accept the one offered",
       [](C c, W w) {
         w[0] == "accept" ? c.chat_.acceptSecret() : c.chat_.startSecret(uinOf(w[0]));
       },
       1, 1},
      {"/status", "", "show who and where you are", [](C c, W) { c.chat_.showStatus(); }, 0},
      {"/wait", "TEXT", "in a script: go on when a line with this text is shown",
       [](C c, W w) {
         std::string text;
         for (const std::string& word : w) text += (text.empty() ? "" : " ") + word;
         c.waitFor(std::move(text));
       },
       kAny, 1},
      {"/quit", "", "leave the program", [](C c, W) { c.quit(); }, 0},
  };
  return commands;
}

Commands::Commands(Console& console, Chat& chat, std::chrono::seconds patience)
    : console_(console), chat_(chat), patience_(patience) {}

std::vector<std::string> Commands::names() {
  std::vector<std::string> names;
  for (const Command& command : table()) names.emplace_back(command.name);
  return names;
}

void Commands::run(const std::string& line) {
  if (line.find_first_not_of(" \t\r") == line.npos) return;
  try {
    if (line.starts_with("//")) {
      chat_.sendText(line.substr(1));
    } else if (line.starts_with('/')) {
      runCommand(line);
    } else {
      chat_.sendText(line);
    }
  } catch (const Complaint& complaint) {
    console_.show(Console::Style::error, std::string("! ") + complaint.what());
  }
}

void Commands::runCommand(const std::string& line) {
  std::istringstream stream(line);
  std::string name;
  stream >> name;
  Words words;
  for (std::string word; stream >> word;) words.push_back(word);

  if (console_.isInteractive()) console_.show(Console::Style::faint, line);
  const auto command = std::find_if(table().begin(), table().end(),
                                    [&](const Command& known) { return known.name == name; });
  if (command == table().end()) throw Complaint("there is no " + name + "; see /help");
  if (words.size() < command->least || words.size() > command->most) {
    throw Complaint("use it so: " + name + " " + std::string(command->arguments));
  }
  command->run(*this, words);
}

void Commands::waitFor(std::string text) {
  awaited_ = std::move(text);
  deadline_ = Clock::now() + patience_;
}

bool Commands::isReady() {
  if (isOver()) return false;
  if (awaited_ && console_.findShown(*awaited_)) awaited_.reset();
  if (!awaited_) return chat_.isIdle();
  if (Clock::now() >= deadline_) {
    console_.show(Console::Style::error, "! waited in vain for: " + *awaited_);
    quit(1);
  }
  return false;
}

void Commands::help() {
  console_.show(Console::Style::plain,
                "What does not begin with / is sent to the conversation, and // sends a /.");
  for (const Command& command : table()) {
    std::string text = std::string(command.name) + " " + std::string(command.arguments);
    text.resize(std::max<std::size_t>(text.size(), 30), ' ');
    console_.show(Console::Style::plain, text + " " + std::string(command.help));
  }
}

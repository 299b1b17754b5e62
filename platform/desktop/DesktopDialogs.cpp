// The desktop dialog backend: message boxes and the fallback form window through zenity, the
// form window of X11TextWindow, help through the browser or xdg-open.
#include "platform/desktop/DesktopDialogs.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "platform/desktop/ChildPrograms.h"
#include "platform/desktop/X11TextWindow.h"
#include "platform/files/Paths.h"

namespace zrk::platform {
namespace {

using programs::Capture;
using programs::Child;
using programs::onPath;
using programs::run;
using programs::runDetached;
using programs::sendAll;
using programs::spawn;
using programs::waitFor;
using programs::waitRunningEvents;

std::string displayText(TextView text) {
  return toUtf8(replaceAll(text, u"\r\n", u"\n"));
}

int32_t pixels(int32_t twips) {
  return twips / kTwipsPerPixel;
}

std::string cssColour(uint32_t rgb) {
  char buf[8];
  std::snprintf(buf, sizeof buf, "#%06X", unsigned(rgb & 0xFFFFFF));
  return buf;
}

// A throwaway configuration folder whose GTK style sheet gives one window the form's colours;
// the window's process gets it as XDG_CONFIG_HOME. Removed with the object.
class StyleFolder {
 public:
  explicit StyleFolder(const FormLayout& layout) {
    const char* tmp = std::getenv("TMPDIR");
    std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/zrkkvl-style-XXXXXX";
    if (!::mkdtemp(tmpl.data())) return;
    dir_ = tmpl;
    ::mkdir((dir_ + "/gtk-3.0").c_str(), 0700);
    std::string css = "window, dialog { background-color: " + cssColour(layout.backColour) +
                      "; color: " + cssColour(layout.foreColour) + "; }\n";
    if (FILE* f = std::fopen((dir_ + "/gtk-3.0/gtk.css").c_str(), "w")) {
      std::fputs(css.c_str(), f);
      std::fclose(f);
    }
  }
  ~StyleFolder() {
    if (dir_.empty()) return;
    ::unlink((dir_ + "/gtk-3.0/gtk.css").c_str());
    ::rmdir((dir_ + "/gtk-3.0").c_str());
    ::rmdir(dir_.c_str());
  }
  StyleFolder(const StyleFolder&) = delete;
  StyleFolder& operator=(const StyleFolder&) = delete;

  std::vector<std::string> environment() const {
    if (dir_.empty()) return {};
    return {"XDG_CONFIG_HOME=" + dir_};
  }

 private:
  std::string dir_;
};

// A form shown by a zenity text window that reads its text from a socket: text added to the
// end goes down the socket, other text starts the window anew in the same place.
class DesktopWindow : public TextWindow {
 public:
  DesktopWindow(FormLayout layout, TextView text) : layout_(std::move(layout)) { launch(text); }
  ~DesktopWindow() override { end(); }

  void setText(TextView text) override {
    if (!isOpen()) return;
    bool grows = text.size() >= text_.size() && text.substr(0, text_.size()) == text_;
    if (grows && sendAll(child_.input, displayText(text.substr(text_.size())))) {
      text_ = Text(text);
      return;
    }
    end();
    launch(text);
  }

  bool isOpen() override {
    if (child_.pid < 0) return false;
    int status = 0;
    if (::waitpid(child_.pid, &status, WNOHANG) == 0) return true;
    child_.pid = -1;
    ::close(child_.input);
    style_.reset();
    return false;
  }

 private:
  void launch(TextView text) {
    text_ = Text(text);
    X11Child native = startX11TextWindow(layout_);
    if (native.pid >= 0) {
      child_.pid = native.pid;
      child_.input = native.input;
      sendAll(child_.input, displayText(text));
      return;
    }
    launchDialogTool(text);
  }

  // The fallback: a zenity text window, whose OK button closes it.
  void launchDialogTool(TextView text) {
    style_ = std::make_unique<StyleFolder>(layout_);
    child_ = spawn({"zenity", "--text-info", "--title=" + toUtf8(layout_.caption),
                    "--width=" + std::to_string(pixels(layout_.clientWidth)),
                    "--height=" + std::to_string(pixels(layout_.clientHeight)),
                    "--font=" + toUtf8(layout_.fontName) + " " + fontSize(), "--ok-label=Close"},
                   true, Capture::None, style_->environment());
    text_ = Text(text);
    if (child_.pid < 0) return;
    sendAll(child_.input, displayText(text));
    place();
  }

  // Moves the window to the form's place once it is on screen.
  void place() const {
    if (!onPath("xdotool")) return;
    runDetached({"timeout", "10", "xdotool", "search", "--sync", "--onlyvisible", "--all", "--pid",
                 std::to_string(child_.pid), "--name", ".", "windowmove",
                 std::to_string(pixels(layout_.left)), std::to_string(pixels(layout_.top))});
  }

  std::string fontSize() const {
    std::string s = std::to_string(layout_.fontPoints);
    s.erase(s.find_last_not_of('0') + 1);
    if (!s.empty() && s.back() == '.') s.pop_back();
    return s;
  }

  void end() {
    if (!isOpen()) return;
    ::kill(child_.pid, SIGTERM);
    waitFor(child_.pid);
    child_.pid = -1;
    ::close(child_.input);
    style_.reset();
  }

  FormLayout layout_;
  std::unique_ptr<StyleFolder> style_;
  Child child_;
  Text text_;
};

}  // namespace

bool DesktopDialogs::available() {
  const char* display = std::getenv("DISPLAY");
  return display && *display && onPath("zenity");
}

std::vector<std::string> messageBoxArguments(TextView text, int32_t buttons, TextView title) {
  // A question dialog without its own two buttons: one button per answer, in order, the first
  // focused. The text is shown as it stands (no markup, no escapes).
  std::vector<std::string> args{"zenity",
                                "--question",
                                "--switch",
                                "--no-markup",
                                "--title=" + toUtf8(title),
                                "--text=" + displayText(text)};
  for (int32_t a : buttonsOf(buttons))
    args.push_back(std::string("--extra-button=") + answerName(a));
  const char* icon = "";
  switch (buttons & 0x70) {
    case mb::Critical:
      icon = "dialog-error";
      break;
    case mb::Question:
      icon = "dialog-question";
      break;
    case mb::Exclamation:
      icon = "dialog-warning";
      break;
    case mb::Information:
      icon = "dialog-information";
      break;
  }
  args.push_back(std::string("--icon-name=") + icon);
  return args;
}

int32_t messageBoxAnswer(int32_t buttons, const std::string& printed) {
  std::vector<int32_t> answers = buttonsOf(buttons);
  for (std::string_view rest = printed; !rest.empty();) {
    size_t end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    for (int32_t a : answers) {
      if (line == answerName(a)) return a;
    }
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  // Closed without a button: Cancel where it is offered, else the last answer.
  for (int32_t a : answers) {
    if (a == mb::Cancel) return a;
  }
  return answers.back();
}

int32_t DesktopDialogs::messageBox(TextView text, int32_t buttons, TextView title) {
  std::string printed;
  int status = -1;
  Child child = spawn(messageBoxArguments(text, buttons, title), false, Capture::OutputAndErrors);
  if (child.pid >= 0) status = waitRunningEvents(child, printed);
  // zenity ends with 1 after a button of its own or a close. Any other status, or a display it
  // could not open, means that it showed nothing.
  bool shown =
      (status == 0 || status == 1) && printed.find("cannot open display") == std::string::npos;
  if (!shown) return TerminalDialogs().messageBox(text, buttons, title);
  return messageBoxAnswer(buttons, printed);
}

int32_t DesktopDialogs::screenWidthTwips() {
  if (screenWidth_ == 0) {
    std::string printed;
    int width = 0;
    if (onPath("xdotool") && run({"xdotool", "getdisplaygeometry"}, &printed) == 0) {
      width = std::atoi(printed.c_str());
    }
    screenWidth_ = width > 0 ? width * kTwipsPerPixel : kDefaultScreenWidthTwips;
  }
  return screenWidth_;
}

std::shared_ptr<TextWindow> DesktopDialogs::showTextWindow(const FormLayout& layout,
                                                           TextView text) {
  return std::make_shared<DesktopWindow>(layout, text);
}

namespace {

bool isHtmlFile(const std::string& path) {
  size_t dot = path.rfind('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return false;
  std::string ext = path.substr(dot + 1);
  for (char& c : ext)
    c = char(std::tolower(static_cast<unsigned char>(c)));
  return ext == "htm" || ext == "html" || ext == "xhtml";
}

// Bytes of a file URL: unreserved characters and those in `keep` as they are, the rest
// percent-encoded.
std::string percentEncoded(std::string_view bytes, std::string_view keep) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : bytes) {
    if (std::isalnum(c) || std::string_view("-._~").find(char(c)) != std::string_view::npos ||
        keep.find(char(c)) != std::string_view::npos) {
      out += char(c);
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
  }
  return out;
}

std::string fileUrl(const std::string& path, std::string_view fragment) {
  std::string url = "file://" + percentEncoded(path, "/");
  if (!fragment.empty()) url += "#" + percentEncoded(fragment, "/?!$&'()*+,;=:@");
  return url;
}

// The program that opens a web address with its fragment: the user's browser ($BROWSER, the
// first of its list), else the system's, else the desktop's opener (which may drop the
// fragment).
std::string browser() {
  if (const char* b = std::getenv("BROWSER"); b && *b) {
    std::string first(b);
    first = first.substr(0, first.find(':'));
    if (!first.empty() && onPath(first)) return first;
  }
  for (const char* p : {"x-www-browser", "sensible-browser"}) {
    if (onPath(p)) return p;
  }
  return "xdg-open";
}

}  // namespace

std::string helpTarget(TextView file, TextView topic) {
  struct stat st;
  std::string native = nativePath(file);
  if (::stat(native.c_str(), &st) != 0) return "";
  std::string name = toUtf8(topic), fragment;
  if (size_t hash = name.find('#'); hash != std::string::npos) {
    fragment = name.substr(hash + 1);
    name.erase(hash);
  }
  if (S_ISDIR(st.st_mode) && !name.empty()) {
    std::string page = nativePath(Text(file) + u"/" + fromUtf8(name));
    if (::stat(page.c_str(), &st) == 0) return fragment.empty() ? page : fileUrl(page, fragment);
  }
  // A page's topic is a place in it; a help file of another kind opens at its start.
  if (S_ISREG(st.st_mode) && !topic.empty() && isHtmlFile(native)) {
    return fileUrl(native, toUtf8(topic));
  }
  return native;
}

void DesktopDialogs::showHelp(TextView file, TextView topic) {
  std::string target = helpTarget(file, topic);
  if (target.empty()) return;
  std::string viewer = target.rfind("file://", 0) == 0 ? browser() : "xdg-open";
  if (!onPath(viewer)) return;
  runDetached({viewer, target});
}

}  // namespace zrk::platform

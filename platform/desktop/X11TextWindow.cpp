// The form window over Xlib, loaded at run time, in a child process that draws it, wraps and
// scrolls its text, and ends when the window is closed or the host goes.
#include "platform/desktop/X11TextWindow.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "platform/loader/SharedLibrary.h"

namespace zrk::platform {
namespace {

// The Xlib calls the window makes, looked up in libX11 when the first window is made (in lower
// case where Xlib has a macro of the same name).
struct Xlib {
  decltype(&::XOpenDisplay) OpenDisplay;
  decltype(&::XCloseDisplay) CloseDisplay;
  decltype(&::XDefaultScreen) defaultScreen;
  decltype(&::XRootWindow) rootWindow;
  decltype(&::XDefaultColormap) defaultColormap;
  decltype(&::XAllocColor) AllocColor;
  decltype(&::XCreateSimpleWindow) CreateSimpleWindow;
  decltype(&::XStoreName) StoreName;
  decltype(&::XSetClassHint) SetClassHint;
  decltype(&::XInternAtom) InternAtom;
  decltype(&::XSetWMProtocols) SetWMProtocols;
  decltype(&::XSetWMNormalHints) SetWMNormalHints;
  decltype(&::XSelectInput) SelectInput;
  decltype(&::XMapWindow) MapWindow;
  decltype(&::XMoveWindow) MoveWindow;
  decltype(&::XCreateGC) CreateGC;
  decltype(&::XSetForeground) SetForeground;
  decltype(&::XSetFont) SetFont;
  decltype(&::XFillRectangle) FillRectangle;
  decltype(&::XDrawRectangle) DrawRectangle;
  decltype(&::XDrawString) DrawString;
  decltype(&::XLoadQueryFont) LoadQueryFont;
  decltype(&::XTextWidth) TextWidth;
  decltype(&::XPending) Pending;
  decltype(&::XNextEvent) NextEvent;
  decltype(&::XConnectionNumber) connectionNumber;
  decltype(&::XFlush) Flush;
  decltype(&::XSync) Sync;
  decltype(&::XLookupKeysym) LookupKeysym;
  decltype(&::XSetErrorHandler) SetErrorHandler;
  decltype(&::XSetIOErrorHandler) SetIOErrorHandler;
};

bool bindXlib(const LibrarySymbols& l, Xlib& x) {
  return l.bind(x.OpenDisplay, "XOpenDisplay") && l.bind(x.CloseDisplay, "XCloseDisplay") &&
         l.bind(x.defaultScreen, "XDefaultScreen") && l.bind(x.rootWindow, "XRootWindow") &&
         l.bind(x.defaultColormap, "XDefaultColormap") && l.bind(x.AllocColor, "XAllocColor") &&
         l.bind(x.CreateSimpleWindow, "XCreateSimpleWindow") && l.bind(x.StoreName, "XStoreName") &&
         l.bind(x.SetClassHint, "XSetClassHint") && l.bind(x.InternAtom, "XInternAtom") &&
         l.bind(x.SetWMProtocols, "XSetWMProtocols") &&
         l.bind(x.SetWMNormalHints, "XSetWMNormalHints") && l.bind(x.SelectInput, "XSelectInput") &&
         l.bind(x.MapWindow, "XMapWindow") && l.bind(x.MoveWindow, "XMoveWindow") &&
         l.bind(x.CreateGC, "XCreateGC") && l.bind(x.SetForeground, "XSetForeground") &&
         l.bind(x.SetFont, "XSetFont") && l.bind(x.FillRectangle, "XFillRectangle") &&
         l.bind(x.DrawRectangle, "XDrawRectangle") && l.bind(x.DrawString, "XDrawString") &&
         l.bind(x.LoadQueryFont, "XLoadQueryFont") && l.bind(x.TextWidth, "XTextWidth") &&
         l.bind(x.Pending, "XPending") && l.bind(x.NextEvent, "XNextEvent") &&
         l.bind(x.connectionNumber, "XConnectionNumber") && l.bind(x.Flush, "XFlush") &&
         l.bind(x.Sync, "XSync") && l.bind(x.LookupKeysym, "XLookupKeysym") &&
         l.bind(x.SetErrorHandler, "XSetErrorHandler") &&
         l.bind(x.SetIOErrorHandler, "XSetIOErrorHandler");
}

// The calls, or null when libX11 is not installed.
const Xlib* xlib() {
  static OnDemandLibrary<Xlib> library("libX11.so.6", bindXlib);
  return library.get();
}

constexpr char kReady = 'R';
constexpr const char* kClassName = "zrkKVL";
constexpr int kScrollBar = 17, kInset = 3;  // pixels
constexpr uint32_t kBoxColour = 0xFFFFFF, kBoxBorder = 0x7F9DB9, kTrack = 0xF0F0F0,
                   kThumb = 0xC8C8C8;

int pixels(int32_t twips) {
  return twips / kTwipsPerPixel;
}

// UTF-8 as the Latin-1 bytes a core font draws; other characters become "?".
std::string latin1(const std::string& utf8) {
  std::string out;
  for (char16_t c : fromUtf8(utf8))
    out += c <= 0xFF ? char(c) : '?';
  return out;
}

// The window as its process sees it: text, wrapping, scrolling, drawing.
class FormWindow {
 public:
  FormWindow(const Xlib& x, Display* d, const FormLayout& layout) : x_(x), d_(d), layout_(layout) {}

  bool open() {
    int screen = x_.defaultScreen(d_);
    const char* fonts[] = {"-*-tahoma-medium-r-normal--11-*-*-*-p-*-iso8859-1",
                           "-*-helvetica-medium-r-normal--11-*-*-*-p-*-iso8859-1",
                           "-*-helvetica-medium-r-normal--12-*-*-*-p-*-iso8859-1",
                           "-misc-fixed-medium-r-semicondensed--13-*-*-*-c-*-iso8859-1", "fixed"};
    for (const char* f : fonts) {
      if ((font_ = x_.LoadQueryFont(d_, f))) break;
    }
    if (!font_) return false;
    width_ = pixels(layout_.clientWidth);
    height_ = pixels(layout_.clientHeight);
    w_ = x_.CreateSimpleWindow(d_, x_.rootWindow(d_, screen), pixels(layout_.left),
                               pixels(layout_.top), unsigned(width_), unsigned(height_), 0, 0,
                               colour(layout_.backColour));
    x_.StoreName(d_, w_, toUtf8(layout_.caption).c_str());
    XClassHint kind{const_cast<char*>(kClassName), const_cast<char*>(kClassName)};
    x_.SetClassHint(d_, w_, &kind);
    deleteWindow_ = x_.InternAtom(d_, "WM_DELETE_WINDOW", False);
    x_.SetWMProtocols(d_, w_, &deleteWindow_, 1);
    XSizeHints hints{};
    hints.flags = USPosition | PPosition | PMinSize | PMaxSize;
    hints.x = pixels(layout_.left);
    hints.y = pixels(layout_.top);
    hints.min_width = hints.max_width = width_;
    hints.min_height = hints.max_height = height_;
    x_.SetWMNormalHints(d_, w_, &hints);
    x_.SelectInput(d_, w_, ExposureMask | KeyPressMask | ButtonPressMask | StructureNotifyMask);
    gc_ = x_.CreateGC(d_, w_, 0, nullptr);
    x_.SetFont(d_, gc_, font_->fid);
    x_.MapWindow(d_, w_);
    x_.MoveWindow(d_, w_, hints.x, hints.y);
    x_.Sync(d_, False);
    return true;
  }

  void add(const std::string& utf8) {
    raw_ += utf8;
    text_ = latin1(raw_);
    lines_ = wrapLines(text_, textWidth(), [this](std::string_view s) {
      return x_.TextWidth(font_, s.data(), int(s.size()));
    });
    scrollTo(first_);
    draw();
  }

  // Handles one event; false once the window is closed.
  bool handle(const XEvent& e) {
    switch (e.type) {
      case Expose:
        if (e.xexpose.count == 0) draw();
        return true;
      case ClientMessage:
        return Atom(e.xclient.data.l[0]) != deleteWindow_;
      case DestroyNotify:
        return false;
      case KeyPress:
        return key(x_.LookupKeysym(const_cast<XKeyEvent*>(&e.xkey), 0));
      case ButtonPress:
        button(e.xbutton);
        return true;
      default:
        return true;
    }
  }

 private:
  unsigned long colour(uint32_t rgb) const {
    XColor c{};
    c.red = uint16_t((rgb >> 16 & 0xFF) * 257);
    c.green = uint16_t((rgb >> 8 & 0xFF) * 257);
    c.blue = uint16_t((rgb & 0xFF) * 257);
    x_.AllocColor(d_, x_.defaultColormap(d_, x_.defaultScreen(d_)), &c);
    return c.pixel;
  }

  int boxLeft() const { return pixels(layout_.boxLeft); }
  int boxTop() const { return pixels(layout_.boxTop); }
  int boxWidth() const { return pixels(layout_.boxWidth); }
  int boxHeight() const { return pixels(layout_.boxHeight); }
  int textWidth() const { return boxWidth() - 2 - 2 * kInset - kScrollBar; }
  int lineHeight() const { return font_->ascent + font_->descent; }
  int visibleLines() const {
    return std::max(1, (boxHeight() - 2 - 2 * kInset) / std::max(1, lineHeight()));
  }
  int lastFirst() const { return std::max(0, int(lines_.size()) - visibleLines()); }
  void scrollTo(int line) { first_ = std::clamp(line, 0, lastFirst()); }

  void scroll(int by) {
    scrollTo(first_ + by);
    draw();
  }

  bool key(KeySym k) {
    switch (k) {
      case XK_Escape:
        return false;
      case XK_Up:
        scroll(-1);
        break;
      case XK_Down:
        scroll(1);
        break;
      case XK_Prior:
        scroll(-visibleLines());
        break;
      case XK_Next:
        scroll(visibleLines());
        break;
      case XK_Home:
        scroll(-int(lines_.size()));
        break;
      case XK_End:
        scroll(int(lines_.size()));
        break;
    }
    return true;
  }

  void button(const XButtonEvent& b) {
    if (b.button == Button4) return scroll(-3);
    if (b.button == Button5) return scroll(3);
    int barLeft = boxLeft() + boxWidth() - 1 - kScrollBar;
    if (b.button != Button1 || b.x < barLeft || b.x >= barLeft + kScrollBar) return;
    auto [top, size] = thumb();
    if (b.y < top) scroll(-visibleLines());
    if (b.y >= top + size) scroll(visibleLines());
  }

  // The scroll bar's thumb: its top and its height.
  std::pair<int, int> thumb() const {
    int track = boxHeight() - 2, lines = std::max<int>(int(lines_.size()), visibleLines());
    int size = std::max(8, track * visibleLines() / lines);
    int top = boxTop() + 1 + (lastFirst() ? (track - size) * first_ / lastFirst() : 0);
    return {top, size};
  }

  void fill(uint32_t rgb, int left, int top, int width, int height) {
    x_.SetForeground(d_, gc_, colour(rgb));
    x_.FillRectangle(d_, w_, gc_, left, top, unsigned(std::max(0, width)),
                     unsigned(std::max(0, height)));
  }

  void draw() {
    int left = boxLeft(), top = boxTop(), width = boxWidth(), height = boxHeight();
    fill(kBoxColour, left, top, width, height);
    x_.SetForeground(d_, gc_, colour(kBoxBorder));
    x_.DrawRectangle(d_, w_, gc_, left, top, unsigned(width - 1), unsigned(height - 1));
    int barLeft = left + width - 1 - kScrollBar;
    fill(kTrack, barLeft, top + 1, kScrollBar, height - 2);
    auto [thumbTop, thumbSize] = thumb();
    fill(kThumb, barLeft + 2, thumbTop, kScrollBar - 4, thumbSize);
    x_.SetForeground(d_, gc_, colour(layout_.foreColour));
    int y = top + 1 + kInset + font_->ascent;
    for (int i = first_; i < int(lines_.size()) && i < first_ + visibleLines(); ++i) {
      const std::string& line = lines_[size_t(i)];
      x_.DrawString(d_, w_, gc_, left + 1 + kInset, y, line.data(), int(line.size()));
      y += lineHeight();
    }
    x_.Flush(d_);
  }

  const Xlib& x_;
  Display* d_;
  FormLayout layout_;
  XFontStruct* font_ = nullptr;
  ::Window w_ = 0;
  GC gc_ = nullptr;
  Atom deleteWindow_ = 0;
  int width_ = 0, height_ = 0;
  std::string raw_, text_;
  std::vector<std::string> lines_;
  int first_ = 0;
};

int ignoreErrors(Display*, XErrorEvent*) {
  return 0;
}

int connectionLost(Display*) {
  ::_exit(0);
}

// The window's process: shows the window, tells the parent it is up, then serves the window
// and the socket until either ends.
[[noreturn]] void runWindow(const Xlib& x, const FormLayout& layout, int socket) {
  x.SetErrorHandler(ignoreErrors);
  x.SetIOErrorHandler(connectionLost);
  Display* d = x.OpenDisplay(nullptr);
  if (!d) ::_exit(2);
  FormWindow window(x, d, layout);
  if (!window.open()) ::_exit(2);
  if (::send(socket, &kReady, 1, MSG_NOSIGNAL) != 1) ::_exit(0);
  pollfd fds[2] = {{x.connectionNumber(d), POLLIN, 0}, {socket, POLLIN, 0}};
  for (;;) {
    while (x.Pending(d)) {
      XEvent e;
      x.NextEvent(d, &e);
      if (!window.handle(e)) ::_exit(0);
    }
    if (::poll(fds, 2, -1) < 0 && errno != EINTR) ::_exit(1);
    if (fds[1].revents & (POLLIN | POLLHUP | POLLERR)) {
      char buf[4096];
      ssize_t n = ::recv(socket, buf, sizeof buf, 0);
      if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN)) ::_exit(0);  // the host went
      if (n > 0) window.add(std::string(buf, size_t(n)));
    }
  }
}

}  // namespace

std::vector<std::string> wrapLines(std::string_view text, int width,
                                   const std::function<int(std::string_view)>& textWidth) {
  std::vector<std::string> lines;
  size_t at = 0;
  while (at <= text.size()) {
    size_t end = text.find_first_of("\r\n", at);
    std::string_view line = text.substr(at, end == std::string_view::npos ? end : end - at);
    do {
      size_t fit = line.size();
      while (fit > 1 && textWidth(line.substr(0, fit)) > width)
        --fit;
      if (fit < line.size()) {
        size_t blank = line.substr(0, fit + 1).find_last_of(' ');
        if (blank != std::string_view::npos && blank > 0) fit = blank + 1;
      }
      std::string_view piece = line.substr(0, fit);
      while (fit < line.size() && piece.size() > 0 && piece.back() == ' ')
        piece.remove_suffix(1);
      lines.emplace_back(piece);
      line.remove_prefix(fit);
    } while (!line.empty());
    if (end == std::string_view::npos) break;
    at = end + (text.compare(end, 2, "\r\n") == 0 ? 2 : 1);
  }
  return lines;
}

X11Child startX11TextWindow(const FormLayout& layout) {
  X11Child child;
  const char* display = std::getenv("DISPLAY");
  const Xlib* x = xlib();
  if (!display || !*display || !x) return child;
  int sv[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv) != 0) return child;
  pid_t pid = ::fork();
  if (pid == 0) {
    // Only the window's own descriptor stays open in its process.
    ::close(sv[1]);
    int keep = sv[0];
    if (keep > 3) ::close_range(3, unsigned(keep - 1), 0);
    ::close_range(unsigned(keep + 1), ~0u, 0);
    ::signal(SIGTERM, SIG_DFL);
    ::signal(SIGPIPE, SIG_IGN);
    runWindow(*x, layout, keep);
  }
  ::close(sv[0]);
  if (pid < 0) {
    ::close(sv[1]);
    return child;
  }
  // Up within a few seconds, or given up for the fallback.
  pollfd p{sv[1], POLLIN, 0};
  char ready = 0;
  if (::poll(&p, 1, 5000) == 1 && ::recv(sv[1], &ready, 1, 0) == 1 && ready == kReady) {
    child.pid = pid;
    child.input = sv[1];
    return child;
  }
  ::kill(pid, SIGTERM);
  while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
  }
  ::close(sv[1]);
  return child;
}

}  // namespace zrk::platform

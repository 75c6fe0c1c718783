#include "apps/playout/Window.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "apps/playout/CellColour.h"
#include "apps/playout/SpeedNotice.h"
#include "apps/playout/Text.h"

namespace Tavrin::Playout::Program {

using Time::TimePoint;

namespace {

using Clock = DrawPace::Clock;
using std::chrono::milliseconds;

/// Nobody sees a cache fill in finer steps.
constexpr milliseconds kStatesInterval{40};

/// Window managers are slow.
constexpr milliseconds kTitleInterval{200};

/// A window that cannot tell the size of its display is not made larger than this.
constexpr PixelSize kSmallDisplay{1280, 720};

/// A key is felt at once all the same.
constexpr milliseconds kBetweenLooks{4};

constexpr int kHeadWidth = 3;
constexpr SDL_Color kBackground{0, 0, 0, 255};
constexpr SDL_Color kHead{255, 255, 255, 255};

SDL_Color ToSdl(const CellColour& colour) {
    return {colour.red, colour.green, colour.blue, 255};
}

bool IsSet(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr && *value != '\0';
}

/// The drivers of the displays that the environment names; SDL_VIDEODRIVER goes before it.
const char* NamedDrivers() {
    if (!IsSet("WAYLAND_DISPLAY")) {
        return "x11";
    }
    return IsSet("DISPLAY") ? "x11,wayland" : "wayland";
}

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error(what + ": " + SDL_GetError());
}

PixelSize RoomOnDisplay() {
    SDL_Rect bounds{};
    return SDL_GetDisplayUsableBounds(0, &bounds) == 0 ? PixelSize{bounds.w, bounds.h} : kSmallDisplay;
}

PixelSize SizeFor(const Session& session) {
    std::vector<PixelSize> pictures;
    for (std::size_t track = 0; track < session.NbTracks(); ++track) {
        const RecordingDescription& description = session.Recording(track).Description();
        pictures.push_back({description.width, description.height});
    }
    return WindowLayout::SizeFor(pictures, RoomOnDisplay());
}

SDL_Rect ToSdl(const Rectangle& place) {
    return {place.x, place.y, place.width, place.height};
}

std::optional<Key> KeyFor(SDL_Keycode code) {
    switch (code) {
        case SDLK_j:
            return Key::J;
        case SDLK_k:
            return Key::K;
        case SDLK_l:
            return Key::L;
        case SDLK_SPACE:
            return Key::Space;
        case SDLK_LEFT:
            return Key::Left;
        case SDLK_RIGHT:
            return Key::Right;
        case SDLK_HOME:
            return Key::Home;
        case SDLK_END:
            return Key::End;
        case SDLK_ESCAPE:
            return Key::Escape;
        case SDLK_q:
            return Key::Q;
        default:
            return std::nullopt;
    }
}

}  // namespace

Window::Library::Library() {
    // Interrupts are the program's own.
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    SDL_SetHint(SDL_HINT_VIDEO_X11_NET_WM_BYPASS_COMPOSITOR, "0");
    // Otherwise it would go on with a display that nobody sees when the one that is named cannot be used.
    SDL_SetHint(SDL_HINT_VIDEODRIVER, NamedDrivers());
    if (SDL_Init(SDL_INIT_VIDEO) != 0) {
        Fail("the display cannot be used");
    }
}

Window::Library::~Library() {
    SDL_Quit();
}

bool Window::HasDisplay() {
    return IsSet("DISPLAY") || IsSet("WAYLAND_DISPLAY") || IsSet("SDL_VIDEODRIVER");
}

std::unique_ptr<Window> Window::Open(const Session& session, milliseconds interval) {
    if (!HasDisplay()) {
        throw std::runtime_error("there is no display: neither DISPLAY nor WAYLAND_DISPLAY is set");
    }
    return std::unique_ptr<Window>(new Window(session, interval));
}

Window::Window(const Session& session, milliseconds interval)
    : session_(session),
      states_(session.NbTracks()),
      pace_(interval),
      statesPace_(kStatesInterval),
      titlePace_(kTitleInterval),
      keys_(session.End()) {
    const PixelSize size = SizeFor(session);
    window_.reset(SDL_CreateWindow("playout", SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, size.width,
                                   size.height, SDL_WINDOW_RESIZABLE));
    if (window_ == nullptr) {
        Fail("a window cannot be opened");
    }
    // Without waiting for the display's refresh: that would take ticks away.
    renderer_.reset(SDL_CreateRenderer(window_.get(), -1, 0));
    if (renderer_ == nullptr) {
        Fail("nothing can be drawn in a window");
    }
    SDL_RendererInfo information{};
    SDL_GetRendererInfo(renderer_.get(), &information);
    const bool isSlow = (information.flags & SDL_RENDERER_SOFTWARE) != 0;
    SDL_SetHint(SDL_HINT_RENDER_SCALE_QUALITY, isSlow ? "nearest" : "linear");
    for (std::size_t track = 0; track < session.NbTracks(); ++track) {
        textures_.emplace_back(*renderer_);
    }
}

Window::~Window() = default;

WindowLayout Window::Layout() const {
    PixelSize size;
    SDL_GetRendererOutputSize(renderer_.get(), &size.width, &size.height);
    return {size, session_.NbTracks(), session_.End()};
}

void Window::Show(const ShownTick& shown) {
    keys_.Follow(session_.Speed());
    const auto begin = Clock::now();
    if (pace_.IsDue(begin) && Refresh(shown)) {
        Draw(shown);
        pace_.Drew(begin, Clock::now());
    }
    ShowTitle(shown);
}

/// Takes over what is to be shown; whether anything differs from what is on show.
bool Window::Refresh(const ShownTick& shown) {
    bool differs = isStale_ || head_ != shown.time;
    for (std::size_t track = 0; track < textures_.size(); ++track) {
        differs = textures_[track].Show(shown.pictures[track], shown.FieldOf(track)) || differs;
    }
    differs = RefreshStates() || differs;
    head_ = shown.time;
    return differs;
}

bool Window::RefreshStates() {
    const auto now = Clock::now();
    if (!isStale_ && !statesPace_.IsDue(now)) {
        return false;
    }
    statesPace_.Drew(now, now);
    const WindowLayout layout = Layout();
    bool differs = false;
    for (std::size_t track = 0; track < states_.size(); ++track) {
        const int width = std::max(layout.Timeline(track).width, 1);
        auto states = session_.CellStates(track, {{}, session_.End(), static_cast<std::size_t>(width)});
        differs = differs || states != states_[track];
        states_[track] = std::move(states);
    }
    return differs;
}

void Window::Draw(const ShownTick& shown) {
    isStale_ = false;
    const WindowLayout layout = Layout();
    SDL_SetRenderDrawColor(renderer_.get(), kBackground.r, kBackground.g, kBackground.b, kBackground.a);
    SDL_RenderClear(renderer_.get());
    for (std::size_t track = 0; track < textures_.size(); ++track) {
        textures_[track].Draw(ToSdl(layout.Picture(track, textures_[track].Size())));
        DrawTimeline(layout, track, shown.time);
    }
    SDL_RenderPresent(renderer_.get());
}

/// Runs of cells in the same state, where the recording is, and the play head.
void Window::DrawTimeline(const WindowLayout& layout, std::size_t track, const TimePoint& head) {
    const Rectangle place = layout.Timeline(track);
    const auto& states = states_[track];
    const int last = layout.ColumnOf(track, session_.End(track) - TimePoint().FromNanoseconds(1));
    const int nb = std::min(last - place.x + 1, static_cast<int>(states.size()));
    const int begin = layout.ColumnOf(track, session_.Begin(track)) - place.x;
    for (int first = begin, end = 0; first < nb; first = end) {
        const CellState state = states[static_cast<std::size_t>(first)];
        for (end = first; end < nb && states[static_cast<std::size_t>(end)] == state;) {
            ++end;
        }
        Fill({place.x + first, place.y, end - first, place.height}, ToSdl(ColourOf(state)));
    }
    Fill({layout.ColumnOf(track, head) - kHeadWidth / 2, place.y, kHeadWidth, place.height}, kHead);
}

void Window::Fill(const Rectangle& place, const SDL_Color& colour) {
    const SDL_Rect area = ToSdl(place);
    SDL_SetRenderDrawColor(renderer_.get(), colour.r, colour.g, colour.b, colour.a);
    SDL_RenderFillRect(renderer_.get(), &area);
}

void Window::ShowTitle(const ShownTick& shown) {
    const auto now = Clock::now();
    if (!titlePace_.IsDue(now)) {
        return;
    }
    titlePace_.Drew(now, now);
    const std::string name = std::filesystem::path(session_.Recording(0).File()).filename().string();
    const std::string title =
        name + "  " + FormatTime(shown.time) + " of " + FormatTime(session_.End()) + "  speed " +
        FormatSpeed(session_.Speed()) +
        (IsShort(shown.heldSpeed, session_.Speed()) ? ", held " + FormatDecimal(shown.heldSpeed, 2) : "");
    if (title != title_) {
        SDL_SetWindowTitle(window_.get(), title.c_str());
        title_ = title;
    }
}

std::vector<PlayCommand> Window::Poll() {
    std::vector<PlayCommand> commands;
    SDL_Event event{};
    while (SDL_PollEvent(&event) != 0) {
        if (auto command = CommandFor(event)) {
            commands.push_back(*command);
        }
    }
    return commands;
}

void Window::WaitForEvent(milliseconds longest) {
    // Looked for rather than waited for: SDL 2.26 wakes its own wait through a second connection to the X server,
    // which may find the window gone by then and ends the process for it.
    const auto end = std::chrono::steady_clock::now() + longest;
    do {
        SDL_PumpEvents();
        if (SDL_HasEvents(SDL_FIRSTEVENT, SDL_LASTEVENT) == SDL_TRUE) {
            return;
        }
        std::this_thread::sleep_for(std::min(kBetweenLooks, longest));
    } while (std::chrono::steady_clock::now() < end);
}

std::optional<PlayCommand> Window::CommandFor(const SDL_Event& event) {
    switch (event.type) {
        case SDL_QUIT:
            return Quit{};
        case SDL_KEYDOWN:
        case SDL_KEYUP: {
            const auto key = KeyFor(event.key.keysym.sym);
            if (!key) {
                return std::nullopt;
            }
            return event.type == SDL_KEYUP ? keys_.Release(*key) : keys_.Press(*key, event.key.repeat != 0);
        }
        case SDL_MOUSEBUTTONDOWN:
        case SDL_MOUSEMOTION:
        case SDL_MOUSEBUTTONUP:
            return CommandForMouse(event);
        case SDL_WINDOWEVENT:
            Note(event.window);
            return std::nullopt;
        case SDL_RENDER_TARGETS_RESET:
        case SDL_RENDER_DEVICE_RESET:
            ForgetTextures();
            return std::nullopt;
        default:
            return std::nullopt;
    }
}

std::optional<PlayCommand> Window::CommandForMouse(const SDL_Event& event) {
    if (event.type == SDL_MOUSEMOTION) {
        return grip_.Move(Layout(), event.motion.x);
    }
    if (event.button.button != SDL_BUTTON_LEFT) {
        return std::nullopt;
    }
    return event.type == SDL_MOUSEBUTTONUP ? grip_.Up()
                                           : grip_.Down(Layout(), event.button.x, event.button.y);
}

void Window::Note(const SDL_WindowEvent& event) {
    switch (event.event) {
        case SDL_WINDOWEVENT_EXPOSED:
        case SDL_WINDOWEVENT_SHOWN:
        case SDL_WINDOWEVENT_SIZE_CHANGED:
            isStale_ = true;
            break;
        default:
            break;
    }
}

void Window::ForgetTextures() {
    isStale_ = true;
    for (PictureTexture& texture : textures_) {
        texture.Forget();
    }
}

}  // namespace Tavrin::Playout::Program

#pragma once

#include <SDL.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Playout/CellState.h"
#include "Playout/IPictureSink.h"
#include "Playout/PlayCommand.h"
#include "Playout/Session.h"
#include "apps/playout/DrawPace.h"
#include "apps/playout/KeyMap.h"
#include "apps/playout/PictureTexture.h"
#include "apps/playout/WindowLayout.h"

namespace Tavrin::Playout::Program {

/// A window with the tracks of a session as a mosaic, each above a timeline that shows what is cached, and the
/// keys and the mouse of who looks at it, as commands.
///
/// *Threads:* bound to one thread, the session's. *Blocking:* on the display, for as long as it takes to hand
/// it the pictures that have changed; never for its refresh. *Ownership:* borrows the session. There can be
/// one at a time. *Errors:* Open throws std::runtime_error with the reason when there is no display or it
/// cannot be used; Show when the display is lost.
class Window final {
public:
    /// Drawn at most once in \p interval; zero: whenever something changes.
    [[nodiscard]] static std::unique_ptr<Window> Open(const Session& session,
                                                      std::chrono::milliseconds interval);
    ~Window();
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    /// Whether the environment names a display.
    [[nodiscard]] static bool HasDisplay();

    /// Draws what has changed since the last time.
    void Show(const ShownTick& shown);

    /// What keys and mouse have asked for since the last time.
    [[nodiscard]] std::vector<PlayCommand> Poll();

    /// Waits until there is something to poll.
    static void WaitForEvent(std::chrono::milliseconds longest);

private:
    /// The library, for as long as there is a window.
    struct Library {
        Library();
        ~Library();
        Library(const Library&) = delete;
        Library& operator=(const Library&) = delete;
    };
    struct Destroy {
        void operator()(SDL_Window* window) const { SDL_DestroyWindow(window); }
        void operator()(SDL_Renderer* renderer) const { SDL_DestroyRenderer(renderer); }
    };

    Window(const Session& session, std::chrono::milliseconds interval);

    [[nodiscard]] WindowLayout Layout() const;
    bool Refresh(const ShownTick& shown);
    bool RefreshStates();
    void Draw(const ShownTick& shown);
    void DrawTimeline(const WindowLayout& layout, std::size_t track, const Time::TimePoint& head);
    void Fill(const Rectangle& place, const SDL_Color& colour);
    void ShowTitle(const ShownTick& shown);

    std::optional<PlayCommand> CommandFor(const SDL_Event& event);
    std::optional<PlayCommand> CommandForMouse(const SDL_Event& event);
    void Note(const SDL_WindowEvent& event);
    void ForgetTextures();

    const Session& session_;
    Library library_;
    std::unique_ptr<SDL_Window, Destroy> window_;
    std::unique_ptr<SDL_Renderer, Destroy> renderer_;
    std::deque<PictureTexture> textures_;
    std::vector<std::vector<CellState>> states_;
    Time::TimePoint head_;
    bool isStale_ = true;  ///< All is to be drawn anew.
    DrawPace pace_;
    DrawPace statesPace_;
    DrawPace titlePace_;
    std::string title_;
    KeyMap keys_;
    TimelineGrip grip_;
};

}  // namespace Tavrin::Playout::Program

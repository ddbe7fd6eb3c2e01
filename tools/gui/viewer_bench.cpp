// The benchmark mode of the window: how fast it answers input.
//
// On whatever drawing dlview was given, with the window at its size:
//
// 1. Overview redraws: five draws of the whole drawing, none interrupted. For
//    each, the longest stretch during which the draw kept control, from its
//    start to the first poll that ran the callback, between two such polls, or
//    from the last to its end: the longest the user can wait before input is
//    even looked at. Guards the polling of the interruptible traversals. Also
//    how many of all the stretches ran over 5 ms: on a shared machine the
//    longest one is often a time the scheduler gave to another process, which
//    a count of a few in thousands tells apart from a draw that is slow.
// 2. Input to updated picture: ten times, an overview draw is started and, at
//    its first callback, a wheel event that zooms about a point by ten each
//    way (a view of 1% of the drawing's area) is put into GTK's queue. The
//    event is left waiting for one stretch, as one that arrives just after a
//    poll would be; then the draw is stopped, the event handled, the zoomed
//    view drawn. Two figures: the time from the event's arrival in the queue
//    to the first updated picture on screen (the draft, when the window draws
//    one; see viewer_window.h), and to the exact picture. Guards pruning of
//    the bounded traversal, the cost of stopping and the draft renderer. The
//    event always stops an exact overview draw (a draft of the overview is
//    let run to its end first), so the runs are alike.
//
// 3. Pan steps: in the last zoomed view, ten drag steps of (24, 16) pixels,
//    each from the event to the exact picture (a pan moves the picture and
//    draws the strips that come into view; see viewer_window.h).
// 4. Zoom out: from that close-up, the wheel zooms out by ten each way; the
//    time to the first picture (a draft, when the window foresees a slow
//    exact draw) and to the exact one.
//
// Figures are printed as medians and maxima with the aims they are held to;
// nothing is asserted.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

#include "tools/gui/driver.h"

namespace dlview {

namespace {

constexpr int kOverviewRuns = 5;
constexpr int kLatencyRuns = 10;

double median(std::vector<double> v) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  const std::size_t n = v.size();
  return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

double most(const std::vector<double>& v) {
  return v.empty() ? 0 : *std::max_element(v.begin(), v.end());
}

struct Bench {
  ViewerWindow* w;
  long long primitives;
  enum class Phase { first, overview, latency, pan, zoom_out } phase = Phase::first;
  std::vector<double> overview_ms, stretch_ms, latency_ms, exact_latency_ms, zoomed_ms, draft_ms;
  std::vector<double> pan_ms, pan_draw_ms;
  int pans_by_strips = 0;
  double zoom_out_first_ms = 0, zoom_out_exact_ms = 0;
  bool zoom_out_drafted = false;
  int drafts = 0;               // events whose first picture was a draft
  bool first_recorded = false;  // the first picture after the event is on screen
  long long stretches = 0, long_stretches = 0;
  bool armed = false;     // inject at the next callback
  bool injected = false;  // an event is on its way
  long long generation_at_injection = 0;
  Clock::time_point t0;
  Clock::time_point ready;      // the list was ready (loaded, mapped)
  double first_picture_ms = 0;  // from `ready` to the first picture on screen

  void inject() {
    // Points spread over the middle of the area, the same each run.
    const int i = static_cast<int>(latency_ms.size());
    const double column = w->view().width * (0.3 + 0.4 * (i % 3) / 2.0);
    const double row = w->view().height * (0.3 + 0.4 * ((i / 3) % 3) / 2.0);
    inject_scroll(*w, column, row, std::log(10.0) / std::log(1.25));
    generation_at_injection = w->generation();
    t0 = Clock::now();
    injected = true;
    first_recorded = false;
    armed = false;
  }

  void finished() {
    const DrawStats& d = w->last_draw();
    switch (phase) {
      case Phase::first:
        first_picture_ms = std::chrono::duration<double, std::milli>(Clock::now() - ready).count();
        phase = Phase::overview;
        w->redraw();
        return;
      case Phase::overview:
        overview_ms.push_back(d.ms);
        stretch_ms.push_back(d.longest_stretch_ms);
        stretches += d.callbacks + 1;
        long_stretches += d.long_stretches;
        if (static_cast<int>(overview_ms.size()) < kOverviewRuns) {
          w->redraw();
          return;
        }
        phase = Phase::latency;
        armed = true;
        w->home();
        return;
      case Phase::latency:
        if (!injected) {
          // A draft of the overview: the event waits for the exact draw.
          if (w->showing_draft()) return;
          // The overview ran without a callback (a small drawing): the event
          // comes now, with nothing to stop.
          inject();
          return;
        }
        if (w->drawn_generation() <= generation_at_injection) return;  // not handled yet
        {
          const double since = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
          if (!first_recorded) {
            latency_ms.push_back(since);
            first_recorded = true;
          }
          if (w->showing_draft()) {
            ++drafts;
            draft_ms.push_back(d.ms);
            return;  // the exact picture follows
          }
          exact_latency_ms.push_back(since);
        }
        zoomed_ms.push_back(d.ms);
        injected = false;
        if (static_cast<int>(latency_ms.size()) < kLatencyRuns) {
          armed = true;
          w->home();
          return;
        }
        phase = Phase::pan;
        pan_step();
        return;
      case Phase::pan: {
        if (w->drawn_generation() <= generation_at_injection || w->showing_draft()) return;
        pan_ms.push_back(since(t0));
        pan_draw_ms.push_back(d.ms);
        pans_by_strips += d.pan;
        if (static_cast<int>(pan_ms.size()) < kPanSteps) {
          pan_step();
          return;
        }
        phase = Phase::zoom_out;
        inject_scroll(*w, w->view().width / 2.0, w->view().height / 2.0,
                      -std::log(10.0) / std::log(1.25));
        generation_at_injection = w->generation();
        t0 = Clock::now();
        first_recorded = false;
        return;
      }
      case Phase::zoom_out:
        if (w->drawn_generation() <= generation_at_injection) return;
        if (!first_recorded) {
          zoom_out_first_ms = since(t0);
          zoom_out_drafted = w->showing_draft();
          first_recorded = true;
        }
        if (w->showing_draft()) return;
        zoom_out_exact_ms = since(t0);
        report();
        w->close();
        return;
    }
  }

  static constexpr double kPressColumn = 300, kPressRow = 200;
  static constexpr int kPanSteps = 10;

  static double since(Clock::time_point t) {
    return std::chrono::duration<double, std::milli>(Clock::now() - t).count();
  }

  void pan_step() {
    // A drag of its own per step: GTK hands a motion over when the next
    // event comes, and the release is that event.
    inject_button(*w, GDK_BUTTON_PRESS, kPressColumn, kPressRow);
    inject_motion(*w, kPressColumn + 24.0, kPressRow + 16.0);
    inject_button(*w, GDK_BUTTON_RELEASE, kPressColumn + 24.0, kPressRow + 16.0);
    generation_at_injection = w->generation();
    t0 = Clock::now();
  }

  void report() const {
    std::printf("dlview bench: %lld primitives, area %dx%d\n", primitives, w->view().width,
                w->view().height);
    std::printf("  first picture on screen %.1f ms after the list was ready (aim: 1 s)\n",
                first_picture_ms);
    std::printf(
        "  overview redraw: median %.1f ms over %d draws; longest stretch between interrupt "
        "polls: %.2f ms (median of the draws' longest %.2f ms; %lld of %lld stretches over 5 "
        "ms)\n",
        median(overview_ms), kOverviewRuns, most(stretch_ms), median(stretch_ms), long_stretches,
        stretches);
    std::printf("    (aims: overview 400 ms, longest stretch 5 ms)\n");
    std::printf(
        "  input to first updated picture, view of 1%% of the drawing: median %.2f ms, longest "
        "%.2f ms over %d events (%d of them a draft; the draft draw alone: median %.2f ms)\n",
        median(latency_ms), most(latency_ms), kLatencyRuns, drafts, median(draft_ms));
    std::printf(
        "  input to exact picture: median %.2f ms, longest %.2f ms (the exact zoomed draw alone: "
        "median %.2f ms; aim 30 ms)\n",
        median(exact_latency_ms), most(exact_latency_ms), median(zoomed_ms));
    std::printf(
        "  pan step of (24, 16) pixels in that view, input to exact picture: median %.2f ms, "
        "longest %.2f ms (%d of %d by strips; the draw alone: median %.2f ms; aim 16 ms)\n",
        median(pan_ms), most(pan_ms), pans_by_strips, kPanSteps, median(pan_draw_ms));
    std::printf(
        "  zoom out by ten from there: first picture after %.2f ms (%s), exact after %.2f ms "
        "(aim: a draft first)\n",
        zoom_out_first_ms, zoom_out_drafted ? "a draft" : "exact", zoom_out_exact_ms);
    std::fflush(stdout);
  }
};

}  // namespace

void start_bench(ViewerWindow& w, long long primitives, Clock::time_point ready) {
  auto bench = std::make_shared<Bench>();
  bench->w = &w;
  bench->primitives = primitives;
  bench->ready = ready == Clock::time_point{} ? Clock::now() : ready;
  w.on_finished = [bench] { bench->finished(); };
  w.poll_hook = [bench, &w] {
    if (!bench->armed || w.drawing_draft()) return true;
    bench->inject();
    return false;  // the event waits for the next poll
  };
}

}  // namespace dlview

// A Qt window showing a display list: DisplayListWidget in a main window.
//
//   qt_window [--once OUT.png]
//
// Wheel to zoom about the pointer, drag to pan, click to pick (the picked
// primitive is outlined and named in the status bar). With --once the window
// draws its first exact picture, saves it to OUT.png and quits (run it with
// QT_QPA_PLATFORM=offscreen where there is no display).
#include <QApplication>
#include <QMainWindow>
#include <QStatusBar>
#include <QTimer>
#include <cstdio>
#include <cstring>
#include <string>

#include "backends/qt/display_list_widget.h"
#include "drawing.h"

int main(int argc, char** argv) {
  std::string once;
  if (argc == 3 && std::strcmp(argv[1], "--once") == 0) {
    once = argv[2];
  } else if (argc != 1) {
    std::fprintf(stderr, "usage: qt_window [--once OUT.png]\n");
    return 2;
  }
  QApplication app(argc, argv);
  DL::DisplayList list;
  example::build_drawing(list);

  QMainWindow window;
  auto* view = new DL::DisplayListWidget;
  window.setCentralWidget(view);
  window.resize(800, 600);
  window.setWindowTitle("DL in a Qt window");
  view->set_list(&list);
  view->on_picked = [&window](const DL::Drawable* d) {
    if (!d) return window.statusBar()->showMessage("nothing picked");
    const DL::WorldBounds b = d->bounds_of();
    window.statusBar()->showMessage(QString("picked a primitive in (%1, %2)-(%3, %4)")
                                        .arg(b.min.x)
                                        .arg(b.min.y)
                                        .arg(b.max.x)
                                        .arg(b.max.y));
  };
  int status = 0;
  if (!once.empty()) {
    view->on_drawn = [&] {
      // The first exact picture of the whole drawing: check that the drawing
      // shows (some pixels are not white), save it and quit.
      view->on_drawn = nullptr;
      const QImage& picture = view->picture();
      long inked = 0;
      for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
          inked += (picture.pixel(x, y) & 0xffffff) != 0xffffff;
      std::printf("qt_window: %dx%d picture, %ld pixels drawn\n", picture.width(), picture.height(),
                  inked);
      if (inked == 0) status = 1;
      if (!picture.save(QString::fromStdString(once))) {
        std::fprintf(stderr, "qt_window: cannot write %s\n", once.c_str());
        status = 1;
      }
      QTimer::singleShot(0, &app, &QApplication::quit);
    };
  }
  window.show();
  view->fit({{0, 0}, {example::kWorld - 1, example::kWorld - 1}});
  const int result = app.exec();
  view->set_list(nullptr);
  return status ? status : result;
}

// Internal: the per-class removal operations of the group tables, defined in
// group_remove.cpp and named by the tables in group.cpp.
#pragma once

#include "displaylist/group.h"

namespace DL {

Group* interior_remove(Group* g, Drawable* d, Drawable* previous);
Group* bottom_remove(Group* g, Drawable* d, Drawable* previous);
Group* open_remove(Group* g, Drawable* d, Drawable* previous);

Group* any_remove_searched(Group* g, const Search& search);
Group* interior_remove_fast(Group* g, const Search& search);
Group* bottom_remove_fast(Group* g, const Search& search);
Group* open_remove_fast(Group* g, const Search& search);

void any_remove_bounded(Group* g, const WorldBounds& rectangle);
void interior_remove_bounded_worker(Group* g, const WorldBounds& rectangle);
void bottom_remove_bounded_worker(Group* g, const WorldBounds& rectangle);
void open_remove_bounded_worker(Group* g, const WorldBounds& rectangle);

}  // namespace DL

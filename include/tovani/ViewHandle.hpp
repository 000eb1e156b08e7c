#pragma once
#include <memory>

#include "tovani/Export.hpp"
#include "tovani/View.hpp"
#include "tovani/tovani.h"

// For platform libraries and C++ code beside C hosts: turns a view into the C interface's
// handle and back. A platform that renders its own host views (a widget, a window) hands its
// root to C hosts this way.
namespace tovani {

// A new handle holding `view` (nullptr for a null view); free it with tovani_view_release.
TOVANI_EXPORT tovani_view* wrapView(std::shared_ptr<View> view);
// The view behind a handle; nullptr for a null handle.
TOVANI_EXPORT std::shared_ptr<View> unwrapView(const tovani_view* handle);

}  // namespace tovani

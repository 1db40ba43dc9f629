#include "NavigatorView.h"

#include "Model/LibraryModel.h"

namespace vantelor {

NavigatorView::NavigatorView(LibraryModel& library, QWidget* parent)
    : QWidget(parent)
    , m_library(library)
{
}

} // namespace vantelor

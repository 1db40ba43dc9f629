#pragma once

#include <memory>

#include <QSettings>
#include <QSignalSpy>
#include <QTest>

#include "Model/NavigatorModel.h"
#include "Support/Sandbox.h"

namespace vantelor::test {

constexpr int asyncTimeoutMs = 10000;

// A navigator whose home is <sandbox>/home and whose only mount root is <sandbox>/media.
inline std::unique_ptr<NavigatorModel> makeNavigator(const Sandbox& sandbox, bool persist = false,
                                                     FolderLabels::Attribute attribute = FolderLabels::xdgTags())
{
    const QString home = sandbox.mkdir(QStringLiteral("home"));
    return std::make_unique<NavigatorModel>(persist, std::move(attribute), home,
                                            QStringList{sandbox.file(QStringLiteral("media"))});
}

inline QSettings preferences()
{
    return QSettings(QStringLiteral("Vantelor"), QStringLiteral("Vantelor"));
}

// The paths of a row's children, in row order.
inline QStringList childPaths(const NavigatorModel& model, const QModelIndex& parent)
{
    QStringList paths;
    for (int row = 0; row < model.rowCount(parent); ++row)
        paths.append(model.index(row, 0, parent).data(NavigatorModel::PathRole).toString());
    return paths;
}

inline QModelIndex homeRow(const NavigatorModel& model)
{
    return model.index(0, 0, model.sectionIndex(NavigatorModel::Section::home));
}

template <typename Condition>
bool eventually(Condition condition)
{
    return QTest::qWaitFor(condition, asyncTimeoutMs);
}

// Does `action` and waits for the signal it causes. A worker may answer before its continuation
// is attached, and Qt then runs the continuation at once: the spy must listen first.
template <typename Signal, typename Action>
bool doAndWait(NavigatorModel& model, Signal signal, Action action)
{
    QSignalSpy spy(&model, signal);
    action();
    return spy.count() > 0 || spy.wait(asyncTimeoutMs);
}

// Expands a folder row and waits until its listing (or its error) arrived.
inline bool expand(NavigatorModel& model, const QModelIndex& folder)
{
    return doAndWait(model, &NavigatorModel::folderLoaded, [&] { model.fetchMore(folder); });
}

inline bool refreshPlaces(NavigatorModel& model)
{
    return doAndWait(model, &NavigatorModel::placesUpdated, [&] { model.refresh(); });
}

} // namespace vantelor::test

#pragma once

#include <memory>

#include <QMainWindow>
#include <QUuid>

class QLabel;
class QTreeView;

namespace vantelor {

class FolderIndexer;
class PhotoListModel;

// The main window: for now the folder's photos as the scanner delivers them, and the status
// line. All of its state lives on the GUI thread; scan results from an older folder are dropped.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    void openFolder(const QString& path);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void chooseFolder();
    void requestBatch();
    void setStatus(const QString& text);

    PhotoListModel* m_model = nullptr;
    QTreeView* m_list = nullptr;
    QLabel* m_status = nullptr;
    std::unique_ptr<FolderIndexer> m_indexer;
    QUuid m_generation;
};

} // namespace vantelor

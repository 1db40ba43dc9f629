#include "TransferCommand.h"

namespace vantelor::cli {

class CopyCommand final : public TransferCommand {
public:
    QString name() const override { return QStringLiteral("copy"); }
    QString summary() const override { return QStringLiteral("Copia fotos con sus archivos asociados, verificadas."); }
    int run(const QStringList& arguments) override { return runTransfer(arguments, TransferKind::copy); }
};

VANTELOR_CLI_COMMAND(CopyCommand)

} // namespace vantelor::cli

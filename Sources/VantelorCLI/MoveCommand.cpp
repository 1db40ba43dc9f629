#include "TransferCommand.h"

namespace vantelor::cli {

class MoveCommand final : public TransferCommand {
public:
    QString name() const override { return QStringLiteral("move"); }
    QString summary() const override { return QStringLiteral("Mueve fotos con sus archivos asociados, conservando los originales."); }
    int run(const QStringList& arguments) override { return runTransfer(arguments, TransferKind::move); }
};

VANTELOR_CLI_COMMAND(MoveCommand)

} // namespace vantelor::cli

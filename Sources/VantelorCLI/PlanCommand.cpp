#include "TransferCommand.h"

namespace vantelor::cli {

class PlanCommand final : public TransferCommand {
public:
    QString name() const override { return QStringLiteral("plan"); }
    QString summary() const override { return QStringLiteral("Muestra qué archivos viajarían en una copia o un traslado."); }
    int run(const QStringList& arguments) override { return runPlan(arguments); }
};

VANTELOR_CLI_COMMAND(PlanCommand)

} // namespace vantelor::cli

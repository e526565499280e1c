#include "build/report/SolutionWarnings.h"

#include "build/engine/ProjectNodes.h"
#include "build/report/NodeProperties.h"

using namespace Qt::StringLiterals;

namespace {

void addWarnings(const PropertySchema &schema, const ProjectElement &element, std::vector<SolutionWarning> &warnings)
{
    for (const ProjectElement *configuration : element.configurations()) {
        const QMap<QString, QString> &properties = configuration->properties();
        for (auto at = properties.begin(); at != properties.end(); ++at) {
            const PropertyClass *property = schema.propertyClassNamed(at.key());
            if (!property || at->isEmpty() || at->contains("$("_L1))
                continue;
            Bookmark bookmark;
            bookmark.text = valueProblem(*property, *at);
            if (bookmark.text.isEmpty())
                continue;
            if (const ProjectElement *solution = solutionOf(&element))
                bookmark.file = solution->filePath();
            bookmark.line = int(configuration->line()) + 1;
            bookmark.severity = Severity::Warning;
            warnings.push_back({&element, bookmark});
        }
    }
    for (const ProjectElement *child = element.firstElement(); child; child = child->nextElement())
        addWarnings(schema, *child, warnings);
}

} // namespace

std::vector<SolutionWarning> solutionWarnings(LoadedSolution &loaded)
{
    std::vector<SolutionWarning> warnings;
    addWarnings(loaded.system().schema(), loaded.solution(), warnings);
    return warnings;
}

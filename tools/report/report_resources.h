// The page's files, compiled in at build time from tools/report/report.{html,css,js}.
#ifndef TESU_TOOLS_REPORT_REPORT_RESOURCES_H
#define TESU_TOOLS_REPORT_REPORT_RESOURCES_H

namespace tesu {
namespace cli {
namespace report {
namespace resources {

extern const char kReportHtml[];
extern const char kReportCss[];
extern const char kReportJs[];

}  // namespace resources
}  // namespace report
}  // namespace cli
}  // namespace tesu

#endif

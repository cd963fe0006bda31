#include "report/report.hpp"

#include <string_view>

#include "playback/playback.hpp"
#include "report/report_data.hpp"
#include "report/report_page.hpp"

namespace zorvel {

ReportResult writeReport(RecordingReader& recording, const std::string& title, TextOutput& page,
                         const std::function<void()>& onProgress) {
  ReportData data;
  RecordingFacts facts;
  ReportResult result;
  result.failure =
      playAll(recording, Forces::Watched, [&](Time time, const Event& event, const Row& row) {
        data.add(time, event, row);
        facts.add(event, recording.lines().lineNumber());
        onProgress();
      });
  if (result.failure && recording.lines().lineNumber() == 0) throw Failure(*result.failure);
  result.findings = findingsOf(facts);
  std::vector<std::string> warnings;
  for (const Finding& finding : result.findings) {
    if (finding.isWarning) warnings.push_back(finding.text);
  }
  const std::string_view frame = reportPage();
  const std::size_t hole = frame.find(reportPageHole);
  page.append(frame.substr(0, hole));
  page.append(
      data.json(title, recording.source(), result.failure ? result.failure->what() : "", warnings));
  page.append(frame.substr(hole + reportPageHole.size()));
  page.flush();
  return result;
}

}  // namespace zorvel

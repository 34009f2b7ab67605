#include "check/check_camera.h"

#include "check/picture_rules.h"
#include "check/request_rules.h"

namespace plendix::check {
namespace {

link::FileName small_picture(const CheckReport& report, const link::Area& whole) {
    link::FileName name;
    name.kind = report.h264 ? link::Kind::h264 : link::Kind::jpeg;
    name.area = whole;
    name.quality = 8;
    name.qp = 29;
    name.ssn = 1;
    name.half = true;
    name.key = true;
    return name;
}

void check_pictures(Interview& interview, CheckReport& report) {
    Findings& findings = interview.findings();
    const link::Area whole = whole_area(report.sensor);
    if (whole.width() <= 0 || whole.height() <= 0) {
        for (const char* group : {"pictures", "jpeg", "h264", "stream"})
            findings.skip_group(group, "no sensor area of 64 x 32 pixels or more");
        return;
    }
    Album album(interview, report.sensor);
    const Ending jpeg = check_jpeg(album, whole), h264 = check_h264(album, whole);
    report.jpeg = jpeg == Ending::whole;
    report.h264 = h264 == Ending::whole;
    const std::string over = interview.examination().over();
    if (!report.jpeg && !report.h264) {
        const bool broken = jpeg == Ending::broken || h264 == Ending::broken;
        if (broken || !over.empty())
            return findings.skip(Rule::pictures_codec, over.empty() ? "no picture came whole" : over);
        return findings.fail(Rule::pictures_codec,
                             {"RRQ image?..., then h264?...", "neither", "a picture of one or both"});
    }
    findings.pass(Rule::pictures_codec, report.jpeg && report.h264 ? "both"
                                        : report.jpeg              ? "image?"
                                                                   : "h264?");
    const link::FileName picture = small_picture(report, whole);
    check_row(interview, picture);
    check_steps(interview, picture);
    check_unknown_keys(interview, picture);
}

}  // namespace

CheckReport examine(const CheckOptions& options) {
    const auto begun = Clock::now();
    Examination examination(options);
    Interview interview(examination);
    CheckReport report;
    report.address = options.address;
    report.identity = check_identity(interview);
    if (examination.heard) {
        const Sensor sensor = check_sensor(interview);
        if (sensor.known) report.sensor = sensor.area;
        check_settings(interview);
        check_trigger(interview);
        check_requests(interview);
        KeptRegister kept(interview);
        check_pictures(interview, report);
        kept.judge();
        interview.look_behind();
        check_waits(interview);
    }
    const std::string over = examination.over();
    for (std::size_t i = 0; i < rules; ++i)
        examination.findings.skip(static_cast<Rule>(i), over.empty() ? "nothing to judge it by" : over);
    report.heard = examination.heard;
    report.findings = examination.findings;
    report.took = Clock::now() - begun;
    return report;
}

}  // namespace plendix::check

#include "ctl/findings.h"

#include "base/text.h"
#include "ctl/output.h"

#include <cstdarg>

namespace {

constinit json_writer json;

} // namespace

finding_report::finding_report()
{
    if (!output_is_json())
        return;
    json.open_object();
    json.open_array("findings");
}

finding_report &finding_report::found(finding number, const char *pattern, ...)
{
    va_list arguments;
    va_start(arguments, pattern);
    count_++;
    if (output_is_json()) {
        json.open_object();
        json.number("number", static_cast<int64_t>(number));
        json.text("finding", formatted_text(pattern, arguments).text());
    } else {
        const coloured_line line(colour::red);
        (void)printf("%2u  ", static_cast<unsigned>(number));
        line.put(pattern, arguments);
    }
    va_end(arguments);
    return *this;
}

void finding_report::remedy(const char *pattern, ...)
{
    va_list arguments;
    va_start(arguments, pattern);
    if (output_is_json()) {
        json.text("remedy", formatted_text(pattern, arguments).text());
        json.close_object();
    } else {
        const coloured_line line(colour::plain);
        line.put("    remedy: ");
        line.put(pattern, arguments);
    }
    va_end(arguments);
}

void finding_report::cannot_tell(const char *what)
{
    if (unknown_ < most_unknown)
        (void)text_ref(reasons_[unknown_++]).format("%s", what);
}

exit_status finding_report::end()
{
    const exit_status result = count_ > 0     ? exit_status::findings
                               : unknown_ > 0 ? exit_status::unknown
                                              : exit_status::done;
    if (!output_is_json()) {
        for (size_t i = 0; i < unknown_; i++)
            say_in(colour::yellow, "??  %s", reasons_[i]);
        if (result == exit_status::done)
            say("Nothing is amiss.");
        return result;
    }
    json.close_array();
    json.open_array("unknown");
    for (size_t i = 0; i < unknown_; i++)
        json.text(nullptr, reasons_[i]);
    json.close_array();
    json.flag("ok", result == exit_status::done);
    json.number("exit", static_cast<int64_t>(result));
    json.close_answer();
    return result;
}

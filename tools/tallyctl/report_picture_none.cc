// tallyctl built without cairo (the cross build for the controller, whose
// target has no cairo): the report commands still decode and print every
// reply, and a request for a picture fails with a message saying why.
#include "report_picture.h"

namespace {

bool no_pictures(std::string *error) {
    *error = "this tallyctl was built without cairo and draws no pictures";
    return false;
}

}  // namespace

bool tallyctl_draw_lines(const std::string &, tallyctl_picture_format, const std::string &,
                         const std::vector<tallyctl_line> &, std::string *error, tallyctl_axis) {
    return no_pictures(error);
}

bool tallyctl_draw_pie(const std::string &, tallyctl_picture_format, const std::string &,
                       const std::vector<tallyctl_slice> &, std::string *error) {
    return no_pictures(error);
}

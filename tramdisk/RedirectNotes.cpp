#include "tramdisk/RedirectNotes.h"

#include "RamDiskCore/Redirects/RedirectConflicts.h"
#include "RamDiskUI/RedirectText.h"

namespace ramdisk::cli {

std::optional<FoundRedirect> findRedirect(const std::string& diskName, const RedirectTarget& target,
                                          const CommandContext& context) {
    for (auto& redirect : context.session.redirects->redirects(diskName)) {
        if (isMeantBy(*context.platform.redirecting, redirect, target)) {
            auto status = context.session.redirects->statuses({redirect}).front();
            return FoundRedirect{std::move(redirect), std::move(status)};
        }
    }
    return std::nullopt;
}

void noteRedirect(const std::string& diskName, const RedirectTarget& target, RedirectStart start,
                  const CommandContext& context) {
    if (context.console.wantsJSON()) {
        return;
    }
    const auto found = findRedirect(diskName, target, context);
    if (!found || !mayBeInPlace(found->redirect)) {
        return;
    }
    if (start == RedirectStart::empty) {
        const bool startsEmpty = !found->status.used || found->status.used->bytes == 0;
        context.console.note(
            printable(redirectNote(target, context.platform.redirecting->settled(target), startsEmpty)));
    }
    if (const auto hazard = context.platform.redirecting->hazard(found->redirect)) {
        context.console.note(printable(*hazard));
    }
}

} // namespace ramdisk::cli

#include <iomanip>
#include <iostream>
#include <memory>
#include <random>
#include <string>

#include "Playout/Verifier.h"
#include "apps/playout/Commands.h"
#include "apps/playout/CommonOptions.h"
#include "apps/playout/Interrupt.h"
#include "apps/playout/ProgressLine.h"
#include "apps/playout/Text.h"

namespace Tavrin::Playout::Program {

namespace {

constexpr int kNameWidth = 10;

struct VerifyArguments {
    std::string file;
    int stream = RecordingIndex::kFirstVideo;
    VerifierOptions options;
};

void PrintPass(const VerifyPass& pass) {
    std::cout << std::left << std::setw(kNameWidth) << pass.name << FormatCount(pass.NbCompared(), "picture")
              << " compared: " << pass.nbSame << " the same";
    if (pass.nbMissing > 0) {
        std::cout << ", " << pass.nbMissing << " missing as in the straight decode";
    }
    if (pass.nbConcealed > 0) {
        std::cout << ", " << pass.nbConcealed << " damaged and made up in another way";
    }
    if (pass.nbDifferent > 0) {
        std::cout << ", " << pass.nbDifferent << " DIFFERENT";
    }
    std::cout << '\n';
}

void PrintDecode(const VerifyReport& report) {
    std::cout << std::left << std::setw(kNameWidth) << "straight" << FormatCount(report.nbDecoded, "picture")
              << " decoded of " << report.nbPictures;
    if (report.nbDamaged > 0) {
        std::cout << ", " << report.nbDamaged << " of them damaged";
    }
    std::cout << '\n';
}

/// Prints each stage once it is over: the straight decode, then each pass.
class Stages final {
public:
    /// Prints what has ended since the last call, the latest stage only when it `isLast` too.
    void Print(const VerifyReport& report, bool isLast) {
        const std::size_t nbEnded = report.passes.size() + (isLast ? 1 : 0);
        for (; nbPrinted_ < nbEnded; ++nbPrinted_) {
            line_.Clear();
            if (nbPrinted_ == 0) {
                PrintDecode(report);
            } else {
                PrintPass(report.passes[nbPrinted_ - 1]);
            }
            std::cout.flush();
        }
    }

    void Show(const VerifyReport& report, std::uint64_t nbDone, std::uint64_t nb) {
        Print(report, false);
        if (line_.IsDue()) {
            line_.Show((report.passes.empty() ? "straight" : report.passes.back().name) + ": " +
                       std::to_string(nbDone) + " of " + std::to_string(nb));
        }
    }

private:
    ProgressLine line_;
    std::size_t nbPrinted_ = 0;
};

int Conclude(const VerifyReport& report, const std::string& file) {
    if (report.difference) {
        const VerifyDifference& difference = *report.difference;
        std::cout.flush();
        std::cerr << "playout: \"" << file << "\": " << difference.pass << " at " << difference.time
                  << " s, picture " << difference.picture << ": " << difference.what << '\n';
        return Failure;
    }
    if (report.stopped) {
        std::cout << "interrupted\n";
        return InterruptStatus();
    }
    if (report.nbDecoded == 0) {
        std::cout.flush();
        std::cerr << "playout: \"" << file << "\": none of its pictures can be decoded\n";
        return Failure;
    }
    std::cout << "verified: no difference\n";
    return Success;
}

int Verify(const VerifyArguments& arguments) {
    const auto& interrupted = CatchInterrupts();
    const auto index = OpenRecording(arguments.file, arguments.stream);
    std::cout << "verifying " << arguments.file << ": " << FormatCount(index->NbPictures(), "picture") << ", "
              << FormatCount(arguments.options.nbJumps, "jump") << " with seed " << arguments.options.seed
              << std::endl;
    Stages stages;
    const auto show = [&stages](const VerifyReport& report, std::uint64_t nbDone, std::uint64_t nb) {
        stages.Show(report, nbDone, nb);
    };
    const VerifyReport report = Verifier(index, arguments.options).Run(show, &interrupted);
    stages.Print(report, true);
    return Conclude(report, arguments.file);
}

}  // namespace

void AddVerifyCommand(CLI::App& program, int& status) {
    auto arguments = std::make_shared<VerifyArguments>();
    arguments->options.seed = std::random_device()();
    CLI::App* command =
        program.add_subcommand("verify", "Check that every picture played is that of a straight decode");
    command->add_option("FILE", arguments->file, "The recording")->required()->type_name("");
    command
        ->add_option("--seed", arguments->options.seed,
                     "Number that chooses the random jumps\n"
                     "(default: another one each time; it is printed)")
        ->type_name("N");
    command
        ->add_option(
            "--jumps", arguments->options.nbJumps,
            "How many random jumps to make (default: " + std::to_string(arguments->options.nbJumps) + ")")
        ->type_name("N");
    AddMemoryOption(*command, arguments->options.session.memoryBytes);
    AddStreamOption(*command, arguments->stream);
    command->footer(
        "Every picture must be the right one, with exactly the pixels of the straight decode. Only\n"
        "where the straight decode marks a picture as damaged, or does not put it out, may it differ\n"
        "or be missing: what is lost is made up from whatever was decoded before. Such pictures are\n"
        "counted.");
    command->callback([arguments, &status] { status = Verify(*arguments); });
}

}  // namespace Tavrin::Playout::Program

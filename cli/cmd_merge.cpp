// vexinterop merge: an updated version of an imported file merged into a scene,
// through the module's update-merge hook.
#include <iostream>
#include <sstream>

#include "cli/commands.h"
#include "host/document_events.h"
#include "host/scene_file.h"

namespace cli {
namespace {

struct MergeArgs {
  std::string scene;
  std::string updated;
  std::string source;
  std::string take;
  bool cancel = false;
  std::string output;
};

void PrintList(const char* what, const std::vector<std::string>& names) {
  for (const auto& n : names) std::cout << what << n << '\n';
}

int RunMerge(Context& context, const MergeArgs& args) {
  auto loaded = context.Host();
  if (!loaded) return Fail(loaded.error());
  host::ReferenceHost& h = **loaded;
  const auto options = SceneReadOptions(h);
  auto scene = host::scene_file::Load(h.documents(), args.scene, options);
  if (!scene) return Fail(scene.error());
  {
    auto text = host::scene_file::Load(h.documents(), args.updated, options);
    if (!text) return Fail(text.error());
    // Move the updated file's objects out and drop its document again.
    std::vector<vex::SceneObjectRef> objects = host::TakeObjects(**text, args.source.empty() ? args.updated : args.source);
    h.documents().Close(*text);
    h.documents().SetActive(*scene);
    if (!args.take.empty() || args.cancel) {
      std::vector<bool> answers(3, false);
      std::stringstream list(args.take);
      for (std::string item; std::getline(list, item, ',');) {
        if (item == "add") answers[0] = true;
        else if (item == "update") answers[1] = true;
        else if (item == "remove") answers[2] = true;
        else if (!item.empty()) return Fail("--take " + args.take + ": expected add, update and/or remove");
      }
      h.dialogs().choiceAnswers = answers;
      h.dialogs().cancelChoices = args.cancel;
    }
    const auto outcome =
        host::UpdateMerge(h.plugins(), **scene, args.source.empty() ? args.updated : args.source, std::move(objects));
    for (const auto& r : h.dialogs().Records()) std::cout << "dialog: " << r.text << '\n';
    if (outcome.cancelled) std::cout << "merge cancelled: the scene is unchanged\n";
    PrintList("added: ", outcome.added);
    PrintList("updated: ", outcome.updated);
    PrintList("removed: ", outcome.removed);
    PrintList("kept: ", outcome.kept);
  }
  if (!args.output.empty()) {
    if (auto saved = host::scene_file::Save(**scene, args.output); !saved) return Fail(saved.error());
    std::cout << "scene written: " << args.output << '\n';
  }
  return kExitOk;
}

}  // namespace

void AddMergeCommands(CLI::App& app, Context& context) {
  auto args = std::make_shared<MergeArgs>();
  auto* merge = app.add_subcommand("merge", "Merge an updated version of an imported file into a scene");
  merge->add_option("scene", args->scene, "Scene file (.vex) holding the earlier import")->required()->check(CLI::ExistingFile);
  merge->add_option("updated", args->updated, "The updated file, as a scene file (.vex)")->required()->check(CLI::ExistingFile);
  merge->add_option("--source", args->source,
                    "The import source recorded on the scene's objects (parameter 1096; default: the updated file's path)");
  merge->add_option("--take", args->take, "Boxes to tick in the merge dialog: add,update,remove (default: its presets)");
  merge->add_flag("--cancel", args->cancel, "Cancel the merge dialog");
  merge->add_option("-o,--output", args->output, "Write the merged scene here");
  merge->callback([&context, args] { throw CLI::RuntimeError(RunMerge(context, *args)); });
}

}  // namespace cli

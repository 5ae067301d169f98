#include "app/config/VelPatchTextKeys.h"

#include <algorithm>

namespace {

constexpr absl::string_view kDivider(", ");

constexpr VelPatchTextKey kTextKeys[] = {
    // Window
    {"$velpatch_window_name", "product name"},
    {"$velpatch_window_name_install", "product name"},
    {"$velpatch_window_name_offline", "product name"},
    {"$velpatch_window_name_install_offline", "product name"},
    // Menus
    {"$velpatch_menu_about", ""},
    {"$velpatch_menu_clear", ""},
    {"$velpatch_menu_close", ""},
    {"$velpatch_menu_copy", ""},
    {"$velpatch_menu_cut", ""},
    {"$velpatch_menu_edit", ""},
    {"$velpatch_menu_help", ""},
    {"$velpatch_menu_paste", ""},
    {"$velpatch_menu_patch_help", ""},
    {"$velpatch_menu_redo", ""},
    {"$velpatch_menu_select_all", ""},
    {"$velpatch_menu_undo", ""},
    {"$velpatch_about", ""},
    {"$velpatch_help_url", ""},
    // Licence sheet
    {"$velpatch_eula_agree", ""},
    {"$velpatch_eula_decline", ""},
    {"$velpatch_eula_filename", ""},
    // Welcome page
    {"$velpatch_welcome_install", "window title, installation folder's name"},
    {"$velpatch_welcome_next", ""},
    {"$velpatch_welcome_uninstall", "product name"},
    // Target page
    {"$velpatch_target_browse", ""},
    {"$velpatch_target_cancel", ""},
    {"$velpatch_target_change_targets", ""},
    {"$velpatch_target_desktop_shortcut", ""},
    {"$velpatch_target_exists", ""},
    {"$velpatch_target_next", ""},
    {"$velpatch_target_no_target", ""},
    {"$velpatch_target_not_valid", "path"},
    {"$velpatch_target_please_select", ""},
    {"$velpatch_target_root", ""},
    {"$velpatch_target_select_1", "installation folder's name"},
    {"$velpatch_target_will_delete_1", ""},
    {"$velpatch_target_will_install_1", "installation folder's name"},
    {"$velpatch_target_will_target_1", "installation folder's name"},
    {"$velpatch_target_yes", ""},
    // Account page
    {"$velpatch_account_back", ""},
    {"$velpatch_account_error", "word of the service"},
    {"$velpatch_account_failed", ""},
    {"$velpatch_account_incorrect", ""},
    {"$velpatch_account_malformed", ""},
    {"$velpatch_account_missing", ""},
    {"$velpatch_account_next", ""},
    {"$velpatch_account_password", ""},
    {"$velpatch_account_products", ""},
    {"$velpatch_account_prompt", ""},
    {"$velpatch_account_uptodate", ""},
    {"$velpatch_account_username", ""},
    // Stream page
    {"$velpatch_stream_back", ""},
    {"$velpatch_stream_change_stream", ""},
    {"$velpatch_stream_done", ""},
    {"$velpatch_stream_name", "stream's name"},
    {"$velpatch_stream_next", ""},
    {"$velpatch_stream_prompt", ""},
    {"$velpatch_stream_select", ""},
    // Check page
    {"$velpatch_check_apply_patch", ""},
    {"$velpatch_check_back", ""},
    {"$velpatch_check_error", "word of the service"},
    {"$velpatch_check_install", ""},
    {"$velpatch_check_invalid_target_1", "path, result"},
    {"$velpatch_check_invalid_target_2", ""},
    {"$velpatch_check_invalid_target_3", ""},
    {"$velpatch_check_malformed", ""},
    {"$velpatch_check_no_patch", ""},
    {"$velpatch_check_patches", ""},
    {"$velpatch_check_servers", ""},
    // Patch page
    {"$velpatch_back", ""},
    {"$velpatch_cancel", ""},
    {"$velpatch_details_heading", ""},
    {"$velpatch_exit", ""},
    {"$velpatch_install", ""},
    {"$velpatch_launch_now", "installation folder's name"},
    {"$velpatch_not_configured", ""},
    {"$velpatch_operation_complete", ""},
    {"$velpatch_operation_failed", ""},
    {"$velpatch_ready_to_begin", ""},
    {"$velpatch_retry", ""},
    {"$velpatch_waiting", ""},
    // A copy that comes with its patch
    {"$velpatch_offline_description", ""},
    // Title of the dialog that asks for the next disc
    {"$please_insert_disc", "volume's number"},
    // The running task: what it is doing
    {"$velpatch_task_loading_installation_data", ""},
    {"$velpatch_task_reading_configuration", ""},
    {"$velpatch_task_ready_to_install", ""},
    {"$velpatch_task_checking_target", ""},
    {"$velpatch_task_downloading_installation_data_mib", "size"},
    {"$velpatch_task_downloading_installation_data_gib", "size"},
    {"$velpatch_task_rate_kib", "rate"},
    {"$velpatch_task_rate_mib", "rate"},
    {"$velpatch_task_hour_remain", ""},
    {"$velpatch_task_hours_remain", "hours"},
    {"$velpatch_task_minute_remain", ""},
    {"$velpatch_task_minutes_remain", "minutes"},
    {"$velpatch_task_seconds_remain", ""},
    {"$velpatch_task_checking_payload_data", ""},
    {"$velpatch_task_copying_payload_data", ""},
    {"$velpatch_task_installing", ""},
    {"$velpatch_task_finalising_installation", ""},
    {"$velpatch_task_cleaning_up", ""},
    {"$velpatch_task_rolling_back", ""},
    // The running task: before anything has been changed
    {"$velpatch_task_invalid_target", ""},
    {"$velpatch_task_invalid_input_filepath", "path"},
    {"$velpatch_task_newer_patcher_required", ""},
    {"$velpatch_task_failed_read_source_data", ""},
    {"$velpatch_task_patch_cancelled", ""},
    {"$velpatch_task_patch_not_viable", ""},
    {"$velpatch_task_cancelled", ""},
    {"$velpatch_task_insufficient_space", ""},
    {"$velpatch_task_plain_file_unexpected", "path"},
    {"$velpatch_task_folder_unexpected", "path"},
    {"$velpatch_task_failed_checksum", "path"},
    {"$velpatch_task_checksum_mismatch", "path, expected checksum, found checksum"},
    {"$velpatch_task_filepath_occupied", "path"},
    {"$velpatch_task_filepath_occupied_mismatch", "path"},
    // The running task: the installation data
    {"$velpatch_task_missing_data", "path"},
    {"$velpatch_task_failed_to_create_temp_under", "folder"},
    {"$velpatch_task_failed_to_open_output_file", ""},
    {"$velpatch_task_failed_to_download_installation_data", ""},
    {"$velpatch_task_failed_copying_payload_data", "path"},
    {"$velpatch_task_install_failed_read_src_data", "path"},
    {"$velpatch_task_install_failed_wrong_size", "expected size, found size"},
    {"$velpatch_task_installation_data_checksum", ""},
    {"$velpatch_task_failed_unable_read_installation_data", ""},
    // The running task: single files
    {"$velpatch_task_failed_unexpected_file", "path"},
    {"$velpatch_task_failed_to_create_temp_for", "path"},
    {"$velpatch_task_failed_unable_create_new_file", "path"},
    {"$velpatch_task_failed_unable_write_new_file", "path"},
    {"$velpatch_task_failed_unable_create_file", "path"},
    {"$velpatch_task_failed_unable_skip_file", "path"},
    {"$velpatch_task_failed_read_file", "path"},
    {"$velpatch_task_failed_create_file", "path"},
    {"$velpatch_task_failed_copy_existing_file", "path"},
    {"$velpatch_task_failed_apply_patches_file", "path"},
    {"$velpatch_task_failed_unable_perm_new_file", "path"},
    {"$velpatch_task_failed_unable_perm_file", "path"},
    {"$velpatch_task_failed_unable_perm_folder", "path"},
    {"$velpatch_task_failed_read_datastreamsize", "result"},
    {"$velpatch_task_copy_failed", "result"},
    {"$velpatch_task_error_on_stream", "result"},
    {"$velpatch_task_failed_read_checksum", "result"},
    {"$velpatch_task_result_checksum_mismatch", "expected checksum, found checksum"},
    // The running task: putting the new files in place
    {"$velpatch_task_retry_create_temporary", ""},
    {"$velpatch_task_failed_generate_temp_file", ""},
    {"$velpatch_task_failed_move_file", "old path, new path"},
    {"$velpatch_task_failed_unable_move_final", ""},
};

} // namespace

int VelPatchTextKey::CountArguments() const {
    int count = 0;
    while (!GetArgument(count + 1).empty()) {
        count++;
    }
    return count;
}

absl::string_view VelPatchTextKey::GetArgument(int number) const {
    absl::string_view rest(arguments);
    for (int i = 1; i < number; i++) {
        const size_t at = rest.find(kDivider);
        if (at == absl::string_view::npos) {
            return absl::string_view();
        }
        rest.remove_prefix(at + kDivider.size());
    }
    return rest.substr(0, rest.find(kDivider));
}

absl::Span<const VelPatchTextKey> GetTextKeys() {
    return kTextKeys;
}

const VelPatchTextKey* FindTextKey(absl::string_view key) {
    const VelPatchTextKey* const end = std::end(kTextKeys);
    const VelPatchTextKey* const found =
        std::find_if(std::begin(kTextKeys), end,
                     [key](const VelPatchTextKey& entry) { return key == entry.key; });
    return found != end ? found : nullptr;
}

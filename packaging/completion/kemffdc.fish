# SPDX-License-Identifier: Apache-2.0
#
# Completion of kemffdc in fish. kemffdc itself knows what fits.

function __kemffdc_complete
    set -l words (commandline --tokenize --cut-at-cursor --current-process)
    set -l last (commandline --current-token --cut-at-cursor)
    for line in ($words[1] complete $words[2..-1] "$last" 2>/dev/null)
        switch $line
            case ':files'
                __fish_complete_path $last
            case ':folders'
                __fish_complete_directories $last
            case '*'
                echo $line
        end
    end
end

complete --command kemffdc --no-files --arguments '(__kemffdc_complete)'

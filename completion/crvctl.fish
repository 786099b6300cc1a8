# fish completion for crvctl; made by "crvctl completion fish"
function __crvctl_words
    set -l words (commandline -opc) (commandline -ct)
    for line in (crvctl completion words -- $words 2>/dev/null)
        switch $line
            case @file
                __fish_complete_path (commandline -ct)
            case @folder
                __fish_complete_directories (commandline -ct)
            case '*'
                echo $line
        end
    end
end
complete -c crvctl -f -a '(__crvctl_words)'

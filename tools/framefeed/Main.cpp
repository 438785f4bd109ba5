// framefeed: the plug-in on real images and on this machine, from the command line.
#include "Commands.h"
#include "ToolError.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
    CLI::App app{"FrameFeed: live-preview frames from camera images, benchmarks and cost estimates"};
    app.require_subcommand(1);

    PreviewOptions preview;
    CLI::App* previewCommand = app.add_subcommand(
        "preview",
        "Turn an image or a raw frame into a preview frame through a stream; writes a JPEG, or a PNG "
        "with --raw-output");
    previewCommand->add_option("INPUT", preview.input, "PNG, PPM or PGM image, or a raw frame file with --raw")
        ->required();
    previewCommand->add_option("-o,--output", preview.output, "Output file (default: INPUT's name, -preview.jpg/.png)");
    previewCommand->add_option("--raw", preview.raw, "INPUT is a raw frame of WIDTHxHEIGHT pixels");
    previewCommand->add_option("--format", preview.format,
                               "Pixel format of the raw frame: mono, rggb, grbg, bggr, gbrg, "
                               "rgb, rgbx, uyvy, yuyv, yuv420p, yuv411p, yuv422p, yuv444p");
    previewCommand->add_option("--as", preview.as, "The sensor format an image is turned into (default rggb)");
    previewCommand
        ->add_option("--depth", preview.depth,
                     "Bits per sample: 8; 10, 12, 16 for mono and Bayer; 10 for "
                     "uyvy and yuyv")
        ->capture_default_str();
    previewCommand->add_option("--bpp", preview.bpp,
                               "Stored bits per pixel (default: the sensor packing of the depth; "
                               "16 puts 10- or 12-bit samples in 16-bit words)");
    previewCommand->add_option("--scale", preview.scale, "Reduction factor: 1, 2, 4, 8, 16")->capture_default_str();
    previewCommand->add_option("--demosaic", preview.demosaic, "Bayer demosaicking: lq, ha, lpaicia, mlri")
        ->capture_default_str();
    previewCommand->add_option("--quality", preview.quality, "JPEG quality, 0 to 1")->capture_default_str();
    previewCommand->add_flag("--raw-output", preview.rawOutput, "Raw output instead of JPEG, written as PNG");
    previewCommand->add_flag("--keep-high-bpp", preview.keepHighBpp,
                             "Do not reduce deep Bayer data to 8 bits before demosaicking");
    previewCommand->add_option("--frames", preview.frames, "Frames to run for the time per frame")
        ->capture_default_str();

    DemoOptions demo;
    CLI::App* demoCommand =
        app.add_subcommand("demo", "Run the sample image through typical streams and write the results into a folder");
    demoCommand->add_option("-o,--output", demo.folder, "Folder for the results")->capture_default_str();

    BenchOptions bench;
    CLI::App* benchCommand =
        app.add_subcommand("bench", "Measure this machine (the plug-in's start-up benchmark) and print the rates");
    benchCommand->add_flag("--force", bench.force, "Measure again even when the cache file is valid");

    EstimateOptions estimate;
    CLI::App* estimateCommand = app.add_subcommand(
        "estimate",
        "Cost of a proposed stream from the benchmark figures: seconds per frame, frames per second and "
        "cameras per core");
    estimateCommand->add_option("--size", estimate.size, "Frame size WIDTHxHEIGHT")->capture_default_str();
    estimateCommand->add_option("--format", estimate.format, "Pixel format of the frames")->capture_default_str();
    estimateCommand->add_option("--depth", estimate.depth, "Bits per sample")->capture_default_str();
    estimateCommand->add_option("--scale", estimate.scale, "Reduction factor: 1, 2, 4, 8, 16")->capture_default_str();
    estimateCommand->add_option("--demosaic", estimate.demosaic, "Bayer demosaicking: lq, ha, lpaicia, mlri")
        ->capture_default_str();
    estimateCommand->add_flag("--raw-output", estimate.rawOutput, "Raw output instead of JPEG");
    estimateCommand->add_flag("--keep-high-bpp", estimate.keepHighBpp, "Keep deep Bayer data for demosaicking");
    estimateCommand->add_option("--fps", estimate.fps, "Frame rate of one camera")->capture_default_str();

    CompareOptions compare;
    CLI::App* compareCommand = app.add_subcommand(
        "compare", "Mosaic images, demosaic them with every algorithm, print CPSNR and time, write a contact sheet");
    compareCommand->add_option("IMAGES", compare.images, "PNG, PPM or PGM images")->required();
    compareCommand->add_option("-o,--output", compare.output, "Contact sheet PNG")->capture_default_str();
    compareCommand->add_option("--bayer", compare.bayer, "Bayer order of the mosaic: rggb, grbg, bggr, gbrg")
        ->capture_default_str();
    compareCommand->add_option("--crop", compare.crop, "Side of the centre crop on the sheet")->capture_default_str();
    compareCommand->add_option("--zoom", compare.zoom, "Magnification of the crops, 1 to 8")->capture_default_str();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int status = app.exit(error);
        return status == 0 ? 0 : 2;
    }
    try {
        if (*previewCommand) return RunPreview(preview);
        if (*demoCommand) return RunDemo(demo);
        if (*benchCommand) return RunBench(bench);
        if (*estimateCommand) return RunEstimate(estimate);
        if (*compareCommand) return RunCompare(compare);
    } catch (const ToolError& error) {
        std::fprintf(stderr, "framefeed: error: %s\n", error.what());
        if (error.ExitStatus() == 2) std::fprintf(stderr, "Run with --help for more information.\n");
        return error.ExitStatus();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "framefeed: error: %s\n", error.what());
        return 1;
    }
    return 2;
}
